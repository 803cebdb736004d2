// Converts text between the tool (UTF-8) and the platform (UTF-16), and bytes to and from text.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/secret_memory.h"

namespace kelvaroctl {

using WideText = std::basic_string<WCHAR>;
using WideView = std::basic_string_view<WCHAR>;
using Bytes = SecretBytes;  // wiped when freed: some are keys or plain texts

// Throws a usage failure if `text` is not well-formed UTF-8.
WideText ToWide(std::string_view text);
SecretText ToWideSecret(std::string_view text);
// Lone surrogates become U+FFFD.
std::string ToNarrow(WideView text);

char LowerAscii(char ch);
bool EqualIgnoringCase(std::string_view first, std::string_view second);  // of ASCII letters

// The parts between the separators, one more than there are separators.
std::vector<std::string_view> Split(std::string_view text, std::string_view separators);
// "a; b": appends a text unless it is empty.
void AddPart(std::string* list, const std::string& text, const char* separator = "; ");

// Writes control characters as \xNN, so that a name from the vault cannot control the terminal.
std::string Printable(std::string_view text);

constexpr char kLowerHex[] = "0123456789abcdef";
constexpr char kUpperHex[] = "0123456789ABCDEF";  // as thumbprints are written
std::string HexText(const Bytes& bytes, const char* digits = kLowerHex);
std::string HexNumber(DWORD number);                 // 0x80090011
bool ParseHex(std::string_view text, Bytes* bytes);  // white space is skipped
std::string Base64(const Bytes& bytes);
bool ParseBase64(std::string_view text, Bytes* bytes);  // white space is skipped
std::string Base64Url(const Bytes& bytes);              // without padding

std::string_view AsText(const Bytes& bytes);

// A value as the platform has it: its text up to the terminator, and its 32-bit word at `index`, 0 if it is shorter.
SecretText TextIn(const Bytes& value);
DWORD WordIn(const Bytes& value, size_t index = 0);

// format: as in strftime.
std::string UtcText(int64_t unixTime, const char* format);

// "; did you mean 'list'?" with the known word that is closest to `word`, or "" if none is close.
std::string DidYouMean(const std::string& word, const std::vector<std::string>& known);

// "a, b", printable.
std::string Joined(const std::vector<std::string>& names);

// Aligns the columns, two spaces apart. Each row ends with a line feed.
std::string Columns(const std::vector<std::vector<std::string>>& rows, size_t indent = 0);

}  // namespace kelvaroctl
