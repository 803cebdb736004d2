#include "platform/registry_text.h"

#include <limits.h>

namespace {

using View = std::basic_string_view<WCHAR>;

constexpr View kFirstLine = TEXT("Windows Registry Editor Version 5.00");

constexpr char kBadKey[] = "a key must be in brackets, [HKEY_...\\...]";
constexpr char kControl[] = "a control character";
constexpr char kBadBytes[] = "the bytes must be pairs of hexadecimal digits, divided by commas";
constexpr char kCutBytes[] = "the bytes break off";

bool IsBlank(WCHAR c)
{
    return c == ' ' || c == '\t';
}

// A tab counts as a space.
bool IsControl(WCHAR c)
{
    return c < 0x20 && c != '\t';
}

View Trim(View text)
{
    while (!text.empty() && IsBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

// ASCII only.
WCHAR LowerCase(WCHAR c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<WCHAR>(c - 'A' + 'a') : c;
}

// -1 if not a hexadecimal digit.
int DigitOf(WCHAR c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const WCHAR lower = LowerCase(c);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

bool IsWellFormed(View text)
{
    return text.empty() || WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(),
                                               static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr) > 0;
}

const char* DecodeUtf16(std::string_view bytes, SecretText* text)
{
    text->resize(bytes.size() / 2);
    for (size_t i = 0; i < text->size(); i++)
        (*text)[i] = static_cast<WCHAR>(static_cast<BYTE>(bytes[2 * i]) | static_cast<BYTE>(bytes[2 * i + 1]) << 8);
    return bytes.size() % 2 == 0 && IsWellFormed(*text) ? nullptr : "the file is not well-formed UTF-16";
}

const char* DecodeUtf8(std::string_view bytes, SecretText* text)
{
    if (bytes.empty())
        return nullptr;
    if (bytes.size() > INT_MAX)
        return "the file is too large";
    const int size = static_cast<int>(bytes.size());
    // No text has more UTF-16 units than UTF-8 bytes.
    text->resize(bytes.size());
    const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data(), size, text->data(), size);
    text->resize(static_cast<size_t>(length));
    return length > 0 ? nullptr : "the file is not well-formed UTF-8";
}

// Returns a message, or NULL on success.
const char* Decode(std::string_view content, SecretText* text)
{
    if (content.substr(0, 2) == "\xFF\xFE")
        return DecodeUtf16(content.substr(2), text);
    return DecodeUtf8(content.substr(0, 3) == "\xEF\xBB\xBF" ? content.substr(3) : content, text);
}

// Reads line by line. A function that returns false has called Fail.
class Parser {
  public:
    Parser(View text, RegistryText* result, RegistryTextProblem* problem)
        : text_(text), result_(result), problem_(problem)
    {
    }

    bool Parse()
    {
        NextLine();
        if (line_ != kFirstLine)
            return Fail(
                "not an export of the registry editor: the first line must be \"Windows Registry Editor Version "
                "5.00\"");
        while (!text_.empty()) {
            NextLine();
            first_ = number_;
            if (!ReadLine())
                return false;
        }
        result_->closingComments = std::move(comments_);
        return true;
    }

  private:
    bool Fail(const char* what)
    {
        *problem_ = {first_, what};
        return false;
    }

    // Trimmed, without its line end. Carriage returns before a line end belong to it: a comment that ended in one would
    // lose it when it is written and read again.
    void NextLine()
    {
        const size_t end = text_.find('\n');
        View line = text_.substr(0, end);
        text_.remove_prefix(end == View::npos ? text_.size() : end + 1);
        while (!line.empty() && (line.back() == '\r' || IsBlank(line.back())))
            line.remove_suffix(1);
        line_ = Trim(line);
        number_++;
    }

    bool Take(View token)
    {
        if (line_.size() < token.size())
            return false;
        for (size_t i = 0; i < token.size(); i++) {
            if (LowerCase(line_[i]) != token[i])
                return false;
        }
        line_.remove_prefix(token.size());
        return true;
    }

    void SkipBlanks()
    {
        while (!line_.empty() && IsBlank(line_.front()))
            line_.remove_prefix(1);
    }

    void KeepComment() { comments_.append(line_).append(1, WCHAR{'\n'}); }

    SecretText TakeComments()
    {
        SecretText taken;
        taken.swap(comments_);
        return taken;
    }

    // A comment may end a line; it is kept above the next one.
    bool ReadEndOfLine()
    {
        SkipBlanks();
        if (line_.empty())
            return true;
        if (line_.front() != ';')
            return Fail("something follows the data");
        KeepComment();
        return true;
    }

    bool ReadLine()
    {
        if (line_.empty())
            return true;
        if (line_.front() == ';') {
            KeepComment();
            return true;
        }
        if (line_.front() == '[')
            return ReadKey();
        if (line_.front() != '"' && line_.front() != '@')
            return Fail("neither a key, nor a value, nor a comment");
        return result_->keys.empty() ? Fail("a value before the first key") : ReadValue(&result_->keys.back());
    }

    bool ReadKey()
    {
        const size_t end = line_.rfind(']');
        if (end == View::npos)
            return Fail(kBadKey);
        RegistryTextKey key;
        key.line = number_;
        key.comments = TakeComments();
        key.removed = line_[1] == '-';
        key.path = line_.substr(key.removed ? 2 : 1, end - (key.removed ? 2 : 1));
        line_.remove_prefix(end + 1);
        if (key.path.empty() || key.path.front() == '\\' || key.path.back() == '\\')
            return Fail(kBadKey);
        for (const WCHAR c : key.path) {
            if (c < 0x20 || c == 0x7F)
                return Fail(kControl);
        }
        result_->keys.push_back(std::move(key));
        return ReadEndOfLine();
    }

    bool ReadValue(RegistryTextKey* key)
    {
        RegistryValue value;
        value.line = number_;
        value.comments = TakeComments();
        SecretText name;
        if (!Take(TEXT("@")) && !ReadQuoted(&name))
            return false;
        value.name = name;
        SkipBlanks();
        if (!Take(TEXT("=")))
            return Fail("a value's name must be followed by =");
        SkipBlanks();
        if (!ReadData(&value) || !ReadEndOfLine())
            return false;
        key->values.push_back(std::move(value));
        return true;
    }

    bool ReadData(RegistryValue* value)
    {
        if (!line_.empty() && line_.front() == '"')
            return ReadText(value);
        if (Take(TEXT("-"))) {
            value->removed = true;
            return true;
        }
        if (Take(TEXT("dword:")))
            return ReadNumber(value);
        if (!Take(TEXT("hex")))
            return Fail("the data must be a quoted text, dword:, hex: or hex(n):, or - to remove the value");
        value->type = REG_BINARY;
        if (Take(TEXT("(")) && !(TakeHexNumber(&value->type) && Take(TEXT(")"))))
            return Fail("hex( must be followed by a type and a closing bracket");
        return Take(TEXT(":")) ? ReadBytes(&value->data) : Fail("hex must be followed by a colon");
    }

    // At an opening quote.
    bool ReadQuoted(SecretText* text)
    {
        for (line_.remove_prefix(1); !line_.empty(); line_.remove_prefix(1)) {
            WCHAR c = line_.front();
            if (c == '"') {
                line_.remove_prefix(1);
                return true;
            }
            if (c == '\\') {
                line_.remove_prefix(1);
                c = line_.empty() ? WCHAR{0} : line_.front();
                if (c != '"' && c != '\\')
                    return Fail("in quotes, a backslash must be followed by a quote or another backslash");
            }
            if (IsControl(c))
                return Fail(kControl);
            text->push_back(c);
        }
        return Fail("the closing quote is missing");
    }

    bool ReadText(RegistryValue* value)
    {
        SecretText text;
        if (!ReadQuoted(&text))
            return false;
        value->type = REG_SZ;
        value->data.reserve(2 * (text.size() + 1));
        text.push_back(0);
        for (const WCHAR unit : text) {
            value->data.push_back(static_cast<BYTE>(unit & 0xFF));
            value->data.push_back(static_cast<BYTE>(unit >> 8));
        }
        return true;
    }

    bool TakeHexNumber(DWORD* number)
    {
        *number = 0;
        size_t digits = 0;
        for (; !line_.empty() && DigitOf(line_.front()) >= 0; digits++) {
            *number = *number << 4 | static_cast<DWORD>(DigitOf(line_.front()));
            line_.remove_prefix(1);
        }
        return digits >= 1 && digits <= 8;
    }

    bool ReadNumber(RegistryValue* value)
    {
        DWORD number;
        if (!TakeHexNumber(&number))
            return Fail("dword: must be followed by up to eight hexadecimal digits");
        value->type = REG_DWORD;
        for (unsigned shift = 0; shift < 32; shift += 8)
            value->data.push_back(static_cast<BYTE>(number >> shift));
        return true;
    }

    bool AtEndOfLine() const { return line_.empty() || line_.front() == ';'; }

    // A backslash at the end of a line continues the bytes on the next one.
    bool ReadBytes(SecretBytes* data)
    {
        for (bool afterComma = false;;) {
            SkipBlanks();
            if (Take(TEXT("\\"))) {
                if (!Trim(line_).empty())
                    return Fail(kBadBytes);
                if (text_.empty())
                    return Fail(kCutBytes);
                NextLine();
                continue;
            }
            if (AtEndOfLine())
                return afterComma ? Fail(kCutBytes) : true;
            if (line_.size() < 2 || DigitOf(line_[0]) < 0 || DigitOf(line_[1]) < 0)
                return Fail(kBadBytes);
            data->push_back(static_cast<BYTE>(DigitOf(line_[0]) * 16 + DigitOf(line_[1])));
            line_.remove_prefix(2);
            SkipBlanks();
            afterComma = Take(TEXT(","));
            if (!afterComma && !AtEndOfLine())
                return Fail(kBadBytes);
        }
    }

    View text_;  // the rest of the text
    View line_;  // the rest of the line
    size_t number_ = 0;
    size_t first_ = 1;  // the line where the key or the value begins
    SecretText comments_;
    RegistryText* result_;
    RegistryTextProblem* problem_;
};

}  // namespace

bool ParseRegistryText(std::string_view content, RegistryText* text, RegistryTextProblem* problem)
{
    SecretText decoded;
    if (const char* const what = Decode(content, &decoded)) {
        *problem = {0, what};
        return false;
    }
    return Parser(decoded, text, problem).Parse();
}
