// Reading JSON answers with json-c.
#pragma once

#include <json-c/json.h>

#include <memory>

#include "platform/platform.h"

struct JsonPutter {
    void operator()(json_object* object) const;
};
// A parsed answer. All its strings are wiped when it is freed: any of them may be a token or plaintext.
using JsonPtr = std::unique_ptr<json_object, JsonPutter>;

// NULL: `text` is NULL or not JSON, or no memory. The result is the only copy of the text that is left.
JsonPtr JsonParse(const char* text);

// The same for an answer from a service. If it isn't JSON or is cut off, logs `message` with json-c's reason as an
// error.
JsonPtr JsonParseAnswer(const WCHAR* message, const char* body);

// Frees what is kept between calls: for the module's end.
void JsonDetach();

// A member of `object`, borrowed. NULL: `object` is NULL or not an object, or the member is missing or null.
json_object* JsonMember(json_object* object, const char* name);

// A member's text, borrowed. NULL: it is missing or null.
const char* JsonMemberText(json_object* object, const char* name);
