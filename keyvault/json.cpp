#include "keyvault/json.h"

#include "support/wipe.h"

JsonPtr JsonParse(const char* text)
{
    return JsonPtr(text ? json_tokener_parse(text) : nullptr);
}

json_object* JsonMember(json_object* object, const char* name)
{
    return json_object_is_type(object, json_type_object) ? json_object_object_get(object, name) : nullptr;
}

const char* JsonMemberText(json_object* object, const char* name)
{
    json_object* member = JsonMember(object, name);
    return member ? json_object_get_string(member) : nullptr;
}

void JsonWipeMember(json_object* object, const char* name)
{
    json_object* member = JsonMember(object, name);
    if (json_object_is_type(member, json_type_string))
        Wipe(const_cast<char*>(json_object_get_string(member)),
             static_cast<size_t>(json_object_get_string_len(member)));
}
