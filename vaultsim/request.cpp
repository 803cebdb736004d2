#include "vaultsim/request.h"

#include "vaultsim/base64url.h"
#include "vaultsim/refusal.h"

namespace vaultsim {

namespace {

constexpr size_t kMostTags = 15;

Refusal WrongMember(const char* member)
{
    return BadParameter(std::string("Property ") + member + " has invalid value");
}

const Json* Find(const Json& object, const char* member)
{
    const auto found = object.find(member);
    return found == object.end() || found->is_null() ? nullptr : &*found;
}

}  // namespace

const std::string& VaultRequest::Name() const
{
    const std::string& name = call.segments.at(1);
    if (!IsValidName(name))
        throw BadParameter("The request URI contains an invalid name: " + name);
    return name;
}

Json VaultRequest::Body() const
{
    if (!EqualsNoCase(call.Header("Content-Type").value_or("").substr(0, 16), "application/json"))
        throw BadParameter("The Content-Type header must be application/json.");
    Json body = Json::parse(call.body, nullptr, false);
    if (!body.is_object())
        throw BadParameter("The request body is not a JSON object.");
    return body;
}

bool ReadBool(const Json& object, const char* member, bool otherwise)
{
    const Json* value = Find(object, member);
    if (value && !value->is_boolean())
        throw WrongMember(member);
    return value ? value->get<bool>() : otherwise;
}

std::string ReadText(const Json& object, const char* member, const std::string& otherwise)
{
    const Json* value = Find(object, member);
    if (value && !value->is_string())
        throw WrongMember(member);
    return value ? value->get<std::string>() : otherwise;
}

std::optional<int64_t> ReadNumber(const Json& object, const char* member)
{
    const Json* value = Find(object, member);
    if (!value)
        return std::nullopt;
    if (value->is_number_integer())
        return value->get<int64_t>();
    const std::string text = value->is_string() ? value->get<std::string>() : "";
    if (!IsNumber(text, 18))
        throw WrongMember(member);
    return std::stoll(text);
}

Json ReadObject(const Json& object, const char* member)
{
    const Json* value = Find(object, member);
    if (value && !value->is_object())
        throw WrongMember(member);
    return value ? *value : Json::object();
}

std::vector<std::string> ReadTexts(const Json& object, const char* member)
{
    const Json* value = Find(object, member);
    std::vector<std::string> texts;
    if (!value)
        return texts;
    if (!value->is_array())
        throw WrongMember(member);
    for (const Json& item : *value) {
        if (!item.is_string())
            throw WrongMember(member);
        texts.push_back(item.get<std::string>());
    }
    return texts;
}

std::string ReadBytes(const Json& object, const char* member)
{
    const std::optional<std::string> bytes = FromBase64(ReadText(object, member));
    if (!Find(object, member) || !bytes)
        throw WrongMember(member);
    return *bytes;
}

Tags ReadTags(const Json& object)
{
    Tags tags;
    const Json given = ReadObject(object, "tags");
    for (const auto& [name, value] : given.items()) {
        if (!value.is_string())
            throw WrongMember("tags");
        tags[name] = value.get<std::string>();
    }
    if (tags.size() > kMostTags)
        throw WrongMember("tags");
    return tags;
}

void ReadAttributes(const Json& object, Attributes& attributes)
{
    const Json given = ReadObject(object, "attributes");
    attributes.enabled = ReadBool(given, "enabled", attributes.enabled);
    if (const auto notBefore = ReadNumber(given, "nbf"))
        attributes.notBefore = notBefore;
    if (const auto expires = ReadNumber(given, "exp"))
        attributes.expires = expires;
}

}  // namespace vaultsim
