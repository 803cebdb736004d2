#include "kelvaroctl/key_properties.h"

namespace kelvaroctl {

namespace {
enum class Form { Text, Number, Lengths, TwoWords, Raw };

struct PropertyRow {
    const WCHAR* name;
    Form form;
};

const PropertyRow kProperties[] = {
    {NCRYPT_NAME_PROPERTY, Form::Text},          {NCRYPT_UNIQUE_NAME_PROPERTY, Form::Text},
    {NCRYPT_ALGORITHM_PROPERTY, Form::Text},     {NCRYPT_ALGORITHM_GROUP_PROPERTY, Form::Text},
    {NCRYPT_LENGTH_PROPERTY, Form::Number},      {NCRYPT_BLOCK_LENGTH_PROPERTY, Form::Number},
    {NCRYPT_LENGTHS_PROPERTY, Form::Lengths},    {NCRYPT_EXPORT_POLICY_PROPERTY, Form::Number},
    {NCRYPT_KEY_USAGE_PROPERTY, Form::Number},   {NCRYPT_KEY_TYPE_PROPERTY, Form::Number},
    {NCRYPT_UI_POLICY_PROPERTY, Form::TwoWords}, {NCRYPT_WINDOW_HANDLE_PROPERTY, Form::Number},
    {NCRYPT_USE_CONTEXT_PROPERTY, Form::Text},   {NCRYPT_SECURITY_DESCR_PROPERTY, Form::Raw},
};

Json Value(const Bytes& bytes, Form form)
{
    switch (form) {
        case Form::Text:
            return ToNarrow(TextIn(bytes));
        case Form::Number:
            return WordIn(bytes);
        case Form::Lengths:
            return {{"minimum", WordIn(bytes, 0)},
                    {"maximum", WordIn(bytes, 1)},
                    {"increment", WordIn(bytes, 2)},
                    {"default", WordIn(bytes, 3)}};
        case Form::TwoWords:
            return {{"version", WordIn(bytes, 0)}, {"flags", WordIn(bytes, 1)}};
        default:
            return HexText(bytes);
    }
}

std::string Words(const Json& value)
{
    if (value.is_null())
        return "not offered";
    if (value.is_string())
        return value.get<std::string>().empty() ? "empty" : Printable(value.get<std::string>());
    if (!value.is_object())
        return value.dump();
    std::string words;
    for (const auto& [name, member] : value.items())
        AddPart(&words, name + " " + member.dump(), ", ");
    return words;
}
}  // namespace

Json KeyProperties(const Key& key)
{
    Json properties = Json::object();
    for (const PropertyRow& row : kProperties) {
        const std::optional<Bytes> bytes = key.Property(row.name);
        properties[ToNarrow(row.name)] = bytes ? Value(*bytes, row.form) : Json(nullptr);
    }
    return properties;
}

std::vector<std::string> KeyOperations(const Key& key)
{
    return NamesOfBits(key.NumberProperty(NCRYPT_KEY_USAGE_PROPERTY),
                       {{NCRYPT_ALLOW_SIGNING_FLAG, "sign"},
                        {NCRYPT_ALLOW_DECRYPT_FLAG, "decrypt"},
                        {NCRYPT_ALLOW_KEY_AGREEMENT_FLAG, "key agreement"}});
}

std::string PropertyColumns(const Json& properties, size_t indent)
{
    std::vector<std::vector<std::string>> rows;
    for (const auto& [name, value] : properties.items())
        rows.push_back({name, Words(value)});
    return Columns(rows, indent);
}

}  // namespace kelvaroctl
