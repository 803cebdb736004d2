// Reading JSON answers with json-c.
#pragma once

#include <json-c/json.h>

#include <memory>

#include "platform/platform.h"

struct JsonPutter {
    void operator()(json_object* object) const;
};
// A parsed answer. All its strings are wiped when it is released: any of them may be a token or a plain text.
using JsonPtr = std::unique_ptr<json_object, JsonPutter>;

// NULL when `text` is NULL or not JSON, or without memory. Leaves no copy of the text behind but in the result.
JsonPtr JsonParse(const char* text);

// The same for the answer of a service: one that isn't JSON, or ends inside it, is logged as an error, with `message`
// and json-c's reason.
JsonPtr JsonParseAnswer(const WCHAR* message, const char* body);

// A member of `object`, borrowed; NULL when `object` is NULL or not an object, or the member is missing or null.
json_object* JsonMember(json_object* object, const char* name);

// A member's text, borrowed; NULL when it is missing or null.
const char* JsonMemberText(json_object* object, const char* name);
