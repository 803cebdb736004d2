// Escaping values in the JSON of a request.
#pragma once

#include "support/bldstr.h"

// Appends `value` to JSON text; the caller writes the quotes. Double quotes, backslashes, control characters and all
// non-ASCII characters become escapes: the text is later converted to the default code page, which may lack a letter or
// replace it by a look-alike, such as a full-width quotation mark by a plain one. 1; 0: `str` is unchanged.
int BldStrCatJson(BldStr* str, const WCHAR* value);
