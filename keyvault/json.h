// Reading JSON answers with json-c.
#pragma once

#include <json-c/json.h>

#include <memory>

struct JsonPutter {
    void operator()(json_object* object) const { json_object_put(object); }
};
using JsonPtr = std::unique_ptr<json_object, JsonPutter>;

// NULL when `text` is NULL or no JSON.
JsonPtr JsonParse(const char* text);

// A member of `object`, borrowed; NULL when `object` is NULL or no object, or the member is missing or null.
json_object* JsonMember(json_object* object, const char* name);

// A member's text, borrowed; NULL when it is missing or null.
const char* JsonMemberText(json_object* object, const char* name);

// Overwrites the text of a member that holds a secret or a token. Nothing when there is none.
void JsonWipeMember(json_object* object, const char* name);
