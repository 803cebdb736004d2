#include "platform/linux/registry_file.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "platform/linux/text.h"

namespace {

constexpr std::u16string_view kFirstLine = u"Windows Registry Editor Version 5.00";
constexpr size_t kMaxLineWidth = 77;

// The path below the hive. False when the key belongs to another hive.
bool TakeRoot(std::u16string_view rootName, std::u16string_view* path)
{
    if (!EqualIgnoringCase(path->substr(0, rootName.size()), rootName))
        return false;
    path->remove_prefix(rootName.size());
    if (path->empty())
        return true;
    const bool divided = path->front() == u'\\';
    path->remove_prefix(1);
    return divided;
}

// False when the text removes the value: only an import may do that.
bool AddValue(RegistryValue* value, RegistryKey* key)
{
    if (value->removed)
        return false;
    RegistryValue* const old = key->FindValue(value->name);
    if (!old)
        key->values.push_back(std::move(*value));
    else
        *old = std::move(*value);
    return true;
}

bool AddKey(RegistryTextKey* read, std::u16string_view rootName, RegistryHive* hive)
{
    std::u16string_view path = read->path;
    if (read->removed || !TakeRoot(rootName, &path))
        return false;
    RegistryKey* const key = hive->FindOrAddKey(path);
    key->comments.append(read->comments);
    return std::all_of(read->values.begin(), read->values.end(),
                       [key](RegistryValue& value) { return AddValue(&value, key); });
}

SecretString Utf8Of(const SecretText& text)
{
    const int length = static_cast<int>(text.size());
    SecretString utf8(text.size() * 3, '\0');
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, utf8.data(), static_cast<int>(utf8.size()),
                                         nullptr, nullptr);
    utf8.resize(static_cast<size_t>(size));
    return utf8;
}

SecretText Quoted(std::u16string_view text)
{
    SecretText result = u"\"";
    for (const char16_t c : text) {
        if (c == u'\\' || c == u'"')
            result += u'\\';
        result += c;
    }
    result += u'"';
    return result;
}

void AppendHex(DWORD number, const char* format, SecretText* out)
{
    char digits[16];
    snprintf(digits, sizeof digits, format, number);
    for (const char* digit = digits; *digit != '\0'; digit++)
        *out += static_cast<char16_t>(*digit);
}

// Whether the data is one terminated string that the quoted form preserves.
bool QuotableText(const RegistryValue& value, SecretText* text)
{
    const SecretBytes& data = value.data;
    if (value.type != REG_SZ || data.size() < 2 || data.size() % 2 != 0)
        return false;
    for (size_t i = 0; i < data.size(); i += 2)
        *text += static_cast<char16_t>(data[i] | (data[i + 1] << 8));
    const bool terminated = text->back() == 0;
    text->pop_back();
    return terminated && IsPlainText(*text);
}

void AppendBytes(const SecretBytes& data, size_t width, SecretText* out)
{
    for (size_t i = 0; i < data.size(); i++) {
        AppendHex(data[i], "%02x", out);
        width += 3;
        if (i + 1 == data.size())
            break;
        *out += u',';
        if (width > kMaxLineWidth - 3) {
            *out += u"\\\n  ";
            width = 2;
        }
    }
}

void AppendValue(const RegistryValue& value, SecretText* out)
{
    *out += value.comments;
    const size_t start = out->size();
    if (value.name.empty())
        *out += u'@';
    else
        out->append(Quoted(value.name));
    *out += u'=';
    SecretText text;
    if (QuotableText(value, &text)) {
        out->append(Quoted(text));
    } else if (value.type == REG_DWORD && value.data.size() == 4) {
        DWORD number;
        memcpy(&number, value.data.data(), sizeof number);
        *out += u"dword:";
        AppendHex(number, "%08x", out);
    } else {
        *out += u"hex";
        if (value.type != REG_BINARY)
            AppendHex(value.type, "(%x)", out);
        *out += u':';
        AppendBytes(value.data, out->size() - start, out);
    }
    *out += u'\n';
}

// NULL if there is none.
template <typename Rows, typename Row>
auto FirstNamed(Rows& rows, std::u16string Row::*text, std::u16string_view name)
{
    const auto found =
        std::find_if(rows.begin(), rows.end(), [&](const Row& row) { return EqualIgnoringCase(row.*text, name); });
    return found == rows.end() ? nullptr : &*found;
}

}  // namespace

bool IsPlainText(std::u16string_view name)
{
    return IsWellFormed(name) &&
           std::none_of(name.begin(), name.end(), [](char16_t c) { return c < 0x20 || c == 0x7F; });
}

RegistryValue* RegistryKey::FindValue(std::u16string_view name)
{
    return FirstNamed(values, &RegistryValue::name, name);
}

const RegistryValue* RegistryKey::FindValue(std::u16string_view name) const
{
    return FirstNamed(values, &RegistryValue::name, name);
}

RegistryKey* RegistryHive::FindKey(std::u16string_view path)
{
    return FirstNamed(keys, &RegistryKey::path, path);
}

const RegistryKey* RegistryHive::FindKey(std::u16string_view path) const
{
    return FirstNamed(keys, &RegistryKey::path, path);
}

bool RegistryHive::HasKey(std::u16string_view path) const
{
    return path.empty() || FindKey(path) || HasKeyBelow(path);
}

bool RegistryHive::HasKeyBelow(std::u16string_view path) const
{
    return std::any_of(keys.begin(), keys.end(), [path](const RegistryKey& key) {
        const std::u16string_view own = key.path;
        return own.size() > path.size() && own[path.size()] == u'\\' &&
               EqualIgnoringCase(own.substr(0, path.size()), path);
    });
}

RegistryKey* RegistryHive::FindOrAddKey(std::u16string_view path)
{
    RegistryKey* key = FindKey(path);
    if (key)
        return key;
    keys.emplace_back();
    keys.back().path = path;
    return &keys.back();
}

bool ParseRegistryFile(std::string_view content, std::u16string_view rootName, RegistryHive* hive)
{
    RegistryText text;
    RegistryTextProblem problem;
    if (!ParseRegistryText(content, &text, &problem))
        return false;
    hive->closingComments = std::move(text.closingComments);
    return std::all_of(text.keys.begin(), text.keys.end(),
                       [&](RegistryTextKey& key) { return AddKey(&key, rootName, hive); });
}

SecretString FormatRegistryFile(const RegistryHive& hive, std::u16string_view rootName)
{
    SecretText text(kFirstLine);
    text += u'\n';
    for (const RegistryKey& key : hive.keys) {
        text.append(u"\n").append(key.comments).append(u"[").append(rootName);
        if (!key.path.empty())
            text.append(u"\\").append(key.path);
        text.append(u"]\n");
        for (const RegistryValue& value : key.values)
            AppendValue(value, &text);
    }
    if (!hive.closingComments.empty())
        text.append(u"\n").append(hive.closingComments);
    return Utf8Of(text);
}
