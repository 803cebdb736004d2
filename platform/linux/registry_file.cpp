#include "platform/linux/registry_file.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "platform/linux/text.h"
#include "platform/linux/win_kernel.h"
#include "platform/linux/win_registry.h"

namespace {

constexpr std::u16string_view kFirstLine = u"Windows Registry Editor Version 5.00";
constexpr size_t kMaxLineWidth = 77;

bool IsBlank(char16_t c)
{
    return c == u' ' || c == u'\t';
}

std::u16string_view Trim(std::u16string_view text)
{
    while (!text.empty() && IsBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

int DigitOf(char16_t c)
{
    if (c >= u'0' && c <= u'9')
        return c - u'0';
    const char16_t upper = UpperCase(c);
    return upper >= u'A' && upper <= u'F' ? upper - u'A' + 10 : -1;
}

void AppendUnits(std::u16string_view text, std::vector<BYTE>* data)
{
    for (const char16_t unit : text) {
        data->push_back(static_cast<BYTE>(unit & 0xFF));
        data->push_back(static_cast<BYTE>(unit >> 8));
    }
}

// ---- reading ----

bool DecodeFile(std::string_view content, std::u16string* text)
{
    if (content.substr(0, 2) == "\xFF\xFE") {
        content.remove_prefix(2);
        if (content.size() % 2 != 0)
            return false;
        for (size_t i = 0; i < content.size(); i += 2)
            *text += static_cast<char16_t>(static_cast<BYTE>(content[i]) | (static_cast<BYTE>(content[i + 1]) << 8));
        return IsWellFormed(*text);
    }
    if (content.substr(0, 3) == "\xEF\xBB\xBF")
        content.remove_prefix(3);
    return ToUtf16Strict(content, text);
}

class Reader {
  public:
    Reader(std::u16string_view text, std::u16string_view rootName, RegistryHive* hive)
        : text_(text), rootName_(rootName), hive_(hive)
    {
    }

    bool Read()
    {
        if (Trim(TakeLine()) != kFirstLine)
            return false;
        RegistryKey* key = nullptr;
        while (!text_.empty()) {
            line_ = Trim(TakeLine());
            if (line_.empty())
                continue;
            if (line_.front() == u';') {
                comments_.append(line_).append(u"\n");
            } else if (line_.front() == u'[') {
                if (!ReadKey(&key))
                    return false;
            } else if (key == nullptr || !ReadValue(key)) {
                return false;
            }
        }
        hive_->closingComments = std::move(comments_);
        return true;
    }

  private:
    std::u16string_view TakeLine()
    {
        const size_t end = text_.find(u'\n');
        std::u16string_view line = text_.substr(0, end);
        text_.remove_prefix(end == std::u16string_view::npos ? text_.size() : end + 1);
        if (!line.empty() && line.back() == u'\r')
            line.remove_suffix(1);
        return line;
    }

    bool Take(std::u16string_view token)
    {
        if (!EqualIgnoringCase(line_.substr(0, token.size()), token))
            return false;
        line_.remove_prefix(token.size());
        return true;
    }

    void SkipBlanks()
    {
        while (!line_.empty() && IsBlank(line_.front()))
            line_.remove_prefix(1);
    }

    // A comment may close a line; it moves above the next one.
    bool AtEndOfLine()
    {
        SkipBlanks();
        if (!line_.empty() && line_.front() == u';') {
            comments_.append(line_).append(u"\n");
            return true;
        }
        return line_.empty();
    }

    bool ReadKey(RegistryKey** key)
    {
        const size_t end = line_.rfind(u']');
        if (end == std::u16string_view::npos)
            return false;
        std::u16string_view path = line_.substr(1, end - 1);
        line_.remove_prefix(end + 1);
        std::u16string comments = std::move(comments_);
        comments_.clear();
        if (!AtEndOfLine() || !IsPlainText(path))
            return false;
        if (!EqualIgnoringCase(path.substr(0, rootName_.size()), rootName_))
            return false;
        path.remove_prefix(rootName_.size());
        if (!path.empty()) {
            if (path.front() != u'\\' || path.size() == 1 || path.back() == u'\\')
                return false;
            path.remove_prefix(1);
        }
        *key = hive_->FindOrAddKey(path);
        (*key)->comments += comments;
        return true;
    }

    bool ReadValue(RegistryKey* key)
    {
        RegistryValue value;
        value.comments = std::move(comments_);
        comments_.clear();
        if (!Take(u"@") && !ReadQuoted(&value.name))
            return false;
        SkipBlanks();
        if (!Take(u"="))
            return false;
        SkipBlanks();
        if (!ReadData(&value) || !AtEndOfLine())
            return false;
        RegistryValue* old = key->FindValue(value.name);
        if (old != nullptr)
            *old = std::move(value);
        else
            key->values.push_back(std::move(value));
        return true;
    }

    bool ReadData(RegistryValue* value)
    {
        if (!line_.empty() && line_.front() == u'"') {
            std::u16string text;
            if (!ReadQuoted(&text))
                return false;
            value->type = REG_SZ;
            AppendUnits(text, &value->data);
            AppendUnits(std::u16string_view(u"\0", 1), &value->data);
            return true;
        }
        if (Take(u"dword:"))
            return ReadDword(value);
        value->type = REG_BINARY;
        if (!Take(u"hex"))
            return false;
        if (Take(u"(") && !(ReadHexNumber(&value->type) && Take(u")")))
            return false;
        return Take(u":") && ReadBytes(&value->data);
    }

    bool ReadQuoted(std::u16string* text)
    {
        if (!Take(u"\""))
            return false;
        while (!line_.empty()) {
            char16_t c = line_.front();
            line_.remove_prefix(1);
            if (c == u'"')
                return true;
            if (c == u'\\') {
                if (line_.empty() || (line_.front() != u'\\' && line_.front() != u'"'))
                    return false;
                c = line_.front();
                line_.remove_prefix(1);
            }
            if (c < 0x20 && c != u'\t')
                return false;
            *text += c;
        }
        return false;
    }

    bool ReadHexNumber(DWORD* number)
    {
        *number = 0;
        size_t digits = 0;
        for (; !line_.empty() && DigitOf(line_.front()) >= 0; digits++) {
            *number = (*number << 4) | static_cast<DWORD>(DigitOf(line_.front()));
            line_.remove_prefix(1);
        }
        return digits >= 1 && digits <= 8;
    }

    bool ReadDword(RegistryValue* value)
    {
        DWORD number;
        if (!ReadHexNumber(&number))
            return false;
        value->type = REG_DWORD;
        for (unsigned shift = 0; shift < 32; shift += 8)
            value->data.push_back(static_cast<BYTE>(number >> shift));
        return true;
    }

    // Pairs of digits divided by commas; a backslash at the end of a line goes on in the next one.
    bool ReadBytes(std::vector<BYTE>* data)
    {
        bool expectsByte = false;
        for (;;) {
            SkipBlanks();
            if (Take(u"\\")) {
                if (!Trim(line_).empty() || text_.empty())
                    return false;
                line_ = Trim(TakeLine());
                continue;
            }
            if (line_.empty() || line_.front() == u';')
                return !expectsByte;
            if (line_.size() < 2 || DigitOf(line_[0]) < 0 || DigitOf(line_[1]) < 0)
                return false;
            data->push_back(static_cast<BYTE>(DigitOf(line_[0]) * 16 + DigitOf(line_[1])));
            line_.remove_prefix(2);
            SkipBlanks();
            expectsByte = Take(u",");
            if (!expectsByte && !line_.empty() && line_.front() != u';')
                return false;
        }
    }

    std::u16string_view text_;
    std::u16string_view line_;
    std::u16string_view rootName_;
    std::u16string comments_;
    RegistryHive* hive_;
};

// ---- writing ----

std::u16string Quoted(std::u16string_view text)
{
    std::u16string result = u"\"";
    for (const char16_t c : text) {
        if (c == u'\\' || c == u'"')
            result += u'\\';
        result += c;
    }
    return result + u'"';
}

void AppendHex(DWORD number, const char* format, std::u16string* out)
{
    char digits[16];
    snprintf(digits, sizeof digits, format, number);
    for (const char* digit = digits; *digit != '\0'; digit++)
        *out += static_cast<char16_t>(*digit);
}

// Whether the data is a text with one terminator, at its end, that the quoted form gives back unchanged.
bool QuotableText(const RegistryValue& value, std::u16string* text)
{
    const std::vector<BYTE>& data = value.data;
    if (value.type != REG_SZ || data.size() < 2 || data.size() % 2 != 0)
        return false;
    for (size_t i = 0; i < data.size(); i += 2)
        *text += static_cast<char16_t>(data[i] | (data[i + 1] << 8));
    const bool terminated = text->back() == 0;
    text->pop_back();
    return terminated && IsPlainText(*text);
}

void AppendBytes(const std::vector<BYTE>& data, size_t width, std::u16string* out)
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

void AppendValue(const RegistryValue& value, std::u16string* out)
{
    *out += value.comments;
    const size_t start = out->size();
    *out += value.name.empty() ? u"@" : Quoted(value.name);
    *out += u'=';
    std::u16string text;
    if (QuotableText(value, &text)) {
        *out += Quoted(text);
    } else if (value.type == REG_DWORD && value.data.size() == 4) {
        const std::vector<BYTE>& d = value.data;
        *out += u"dword:";
        AppendHex(d[0] | (static_cast<DWORD>(d[1]) << 8) | (static_cast<DWORD>(d[2]) << 16) |
                      (static_cast<DWORD>(d[3]) << 24),
                  "%08x", out);
    } else {
        *out += u"hex";
        if (value.type != REG_BINARY)
            AppendHex(value.type, "(%x)", out);
        *out += u':';
        AppendBytes(value.data, out->size() - start, out);
    }
    *out += u'\n';
}

}  // namespace

bool IsPlainText(std::u16string_view name)
{
    return IsWellFormed(name) &&
           std::none_of(name.begin(), name.end(), [](char16_t c) { return c < 0x20 || c == 0x7F; });
}

RegistryValue* RegistryKey::FindValue(std::u16string_view name)
{
    return const_cast<RegistryValue*>(static_cast<const RegistryKey*>(this)->FindValue(name));
}

const RegistryValue* RegistryKey::FindValue(std::u16string_view name) const
{
    const auto found = std::find_if(values.begin(), values.end(),
                                    [name](const RegistryValue& value) { return EqualIgnoringCase(value.name, name); });
    return found == values.end() ? nullptr : &*found;
}

RegistryHive::~RegistryHive()
{
    for (RegistryKey& key : keys) {
        for (RegistryValue& value : key.values)
            SecureZeroMemory(value.data.data(), value.data.size());
    }
}

RegistryKey* RegistryHive::FindKey(std::u16string_view path)
{
    return const_cast<RegistryKey*>(static_cast<const RegistryHive*>(this)->FindKey(path));
}

const RegistryKey* RegistryHive::FindKey(std::u16string_view path) const
{
    const auto found = std::find_if(keys.begin(), keys.end(),
                                    [path](const RegistryKey& key) { return EqualIgnoringCase(key.path, path); });
    return found == keys.end() ? nullptr : &*found;
}

bool RegistryHive::HasKey(std::u16string_view path) const
{
    return path.empty() || FindKey(path) != nullptr || HasKeyBelow(path);
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
    if (key != nullptr)
        return key;
    keys.emplace_back();
    keys.back().path = path;
    return &keys.back();
}

bool ParseRegistryFile(std::string_view content, std::u16string_view rootName, RegistryHive* hive)
{
    std::u16string text;
    const bool parsed = DecodeFile(content, &text) && Reader(text, rootName, hive).Read();
    SecureZeroMemory(text.data(), text.size() * sizeof(char16_t));
    return parsed;
}

std::string FormatRegistryFile(const RegistryHive& hive, std::u16string_view rootName)
{
    std::u16string text = std::u16string(kFirstLine) + u'\n';
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
    std::string content = ToUtf8(text);
    SecureZeroMemory(text.data(), text.size() * sizeof(char16_t));
    return content;
}
