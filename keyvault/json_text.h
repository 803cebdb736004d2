// Values inside the JSON text of a request.
#pragma once

#include "support/bldstr.h"

// Appends `value` to a JSON text, between the quotes that the caller writes. Double quotes, backslashes, control
// characters and everything beyond ASCII become JSON escapes: the text is converted to the default code page
// afterwards, which may have no such letter, or may take a look-alike for it, such as a quotation mark for a full-width
// one. 1 with the value appended, 0 with the string unchanged.
int BldStrCatJson(BldStr* str, const WCHAR* value);
