#include "kelvaroctl/registry_text.h"

#include <cstring>

namespace kelvaroctl {

static const char kFirstLine[] = "Windows Registry Editor Version 5.00";

Failure LineFailure(size_t line, const std::string& problem)
{
    return UsageFailure("line " + std::to_string(line) + ": " + problem);
}

// The text in UTF-8, without a byte order mark.
static std::string Decode(const Bytes& content)
{
    if (content.size() >= 2 && content[0] == 0xFF && content[1] == 0xFE) {
        if (content.size() % sizeof(WCHAR))
            throw UsageFailure("the file ends inside a UTF-16 character");
        WideText wide(content.size() / sizeof(WCHAR) - 1, 0);
        if (!wide.empty())
            std::memcpy(wide.data(), content.data() + 2, wide.size() * sizeof(WCHAR));
        return ToNarrow(wide);
    }
    const bool marked = content.size() >= 3 && content[0] == 0xEF && content[1] == 0xBB && content[2] == 0xBF;
    std::string text(content.begin() + (marked ? 3 : 0), content.end());
    ToWide(text);  // refuses what is not UTF-8
    return text;
}

namespace {
bool IsBlank(char ch)
{
    return ch == ' ' || ch == '\t';
}

// The parser's place in the text.
class Parser {
  public:
    explicit Parser(std::string text) : text_(std::move(text)) {}

    RegistryText Parse();

  private:
    bool NextLine(std::string* line);
    void ReadHeader();
    void ReadKey(const std::string& line);
    void ReadEntry(const std::string& line);
    void ReadData(std::string_view data, RegistryEntry* entry);
    void ReadText(std::string_view data, RegistryEntry* entry);
    void ReadNumber(std::string_view digits, RegistryEntry* entry);
    void ReadHex(std::string_view data, RegistryEntry* entry);
    // Takes the quoted text at the front of `data`.
    std::string TakeQuoted(std::string_view* data);
    [[noreturn]] void Throw(const std::string& problem) const { throw LineFailure(line_, problem); }

    std::string text_;
    size_t at_ = 0;
    size_t next_ = 0;  // number of the last line read
    size_t line_ = 0;  // where the entry in hand begins
    RegistryText result_;
};

// One line without its end and without blanks around it.
bool Parser::NextLine(std::string* line)
{
    if (at_ >= text_.size())
        return false;
    const size_t end = text_.find('\n', at_);
    *line = text_.substr(at_, end == std::string::npos ? end : end - at_);
    at_ = end == std::string::npos ? text_.size() : end + 1;
    ++next_;
    while (!line->empty() && (IsBlank(line->back()) || line->back() == '\r'))
        line->pop_back();
    size_t begin = 0;
    while (begin < line->size() && IsBlank((*line)[begin]))
        ++begin;
    line->erase(0, begin);
    return true;
}

void Parser::ReadHeader()
{
    std::string line;
    line_ = 1;
    if (!NextLine(&line) || line != kFirstLine)
        Throw(std::string("this is no export of the registry editor: the first line must be \"") + kFirstLine + "\"");
}

RegistryText Parser::Parse()
{
    ReadHeader();
    for (std::string line; NextLine(&line);) {
        line_ = next_;
        if (line.empty() || line[0] == ';')
            continue;
        if (line[0] == '[')
            ReadKey(line);
        else
            ReadEntry(line);
    }
    return std::move(result_);
}

void Parser::ReadKey(const std::string& line)
{
    if (line.back() != ']' || line.size() < 3)
        Throw("a key must stand between [ and ]");
    if (line[1] == '-')
        Throw("the line removes a whole key, which is not done here; 'kelvaroctl config unset' removes settings");
    result_.keys.push_back({line_, line.substr(1, line.size() - 2)});
}

std::string Parser::TakeQuoted(std::string_view* data)
{
    std::string text;
    for (size_t at = 1; at < data->size(); ++at) {
        char ch = (*data)[at];
        if (ch == '"') {
            data->remove_prefix(at + 1);
            return text;
        }
        if (ch == '\\') {
            ch = at + 1 < data->size() ? (*data)[++at] : char{0};
            if (ch != '"' && ch != '\\')
                Throw("in a quoted text a backslash stands before a quote or another backslash only");
        }
        text += ch;
    }
    Throw("a quoted text is not closed on its line");
}

void Parser::ReadEntry(const std::string& line)
{
    if (result_.keys.empty())
        Throw("a value stands before the first key");
    if (line[0] == '@')
        Throw("the key's default value is no setting");
    if (line[0] != '"')
        Throw("this is neither a key, nor a value, nor a comment");
    RegistryEntry entry;
    entry.line = line_;
    entry.key = result_.keys.back().path;
    std::string_view rest(line);
    entry.name = TakeQuoted(&rest);
    if (rest.empty() || rest[0] != '=')
        Throw("a value's name must be followed by =");
    ReadData(rest.substr(1), &entry);
    result_.entries.push_back(std::move(entry));
}

void Parser::ReadData(std::string_view data, RegistryEntry* entry)
{
    if (data == "-")
        entry->remove = true;
    else if (!data.empty() && data[0] == '"')
        ReadText(data, entry);
    else if (data.substr(0, 6) == "dword:")
        ReadNumber(data.substr(6), entry);
    else if (data.substr(0, 3) == "hex")
        ReadHex(data.substr(3), entry);
    else
        Throw("the data must be a quoted text, dword:, hex: or hex(n):, or - to remove the value");
}

void Parser::ReadText(std::string_view data, RegistryEntry* entry)
{
    entry->value = TextValue(ToWide(TakeQuoted(&data)));
    if (!data.empty())
        Throw("something follows the quoted text");
}

void Parser::ReadNumber(std::string_view digits, RegistryEntry* entry)
{
    const std::string padded = std::string(8 - std::min<size_t>(8, digits.size()), '0') + std::string(digits);
    Bytes bytes;
    if (digits.empty() || digits.size() > 8 || digits.find_first_of(" \t") != std::string_view::npos ||
        !ParseHex(padded, &bytes))
        Throw("dword: must be followed by up to eight hexadecimal digits");
    DWORD number = 0;
    for (const BYTE byte : bytes)
        number = number << 8 | byte;
    entry->value = NumberValue(number);
}

void Parser::ReadHex(std::string_view data, RegistryEntry* entry)
{
    entry->value.type = REG_BINARY;
    if (!data.empty() && data[0] == '(') {
        const size_t close = data.find(')');
        const auto type =
            close == std::string_view::npos ? std::nullopt : ParseNumber("0x" + std::string(data.substr(1, close - 1)));
        if (!type)
            Throw("hex( must be followed by a type and a closing bracket");
        entry->value.type = *type;
        data.remove_prefix(close + 1);
    }
    if (data.empty() || data[0] != ':')
        Throw("hex must be followed by a colon");
    std::string all(data.substr(1));
    // A backslash at the end carries the bytes over to the next line.
    for (std::string more; !all.empty() && all.back() == '\\'; all += more) {
        all.pop_back();
        if (!NextLine(&more))
            Throw("the bytes end in the middle");
    }
    for (size_t begin = 0; begin < all.size();) {
        const size_t comma = std::min(all.find(',', begin), all.size());
        Bytes byte;
        if (!ParseHex(std::string_view(all).substr(begin, comma - begin), &byte) || byte.size() != 1)
            Throw("the bytes must be pairs of hexadecimal digits, divided by commas");
        entry->value.bytes.push_back(byte[0]);
        begin = comma + 1;
    }
}
}  // namespace

RegistryText ParseRegistryText(const Bytes& content)
{
    return Parser(Decode(content)).Parse();
}

}  // namespace kelvaroctl
