// Small text helpers.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace vaultsim {

std::string Lower(std::string_view text);
bool EqualsNoCase(std::string_view a, std::string_view b);
std::vector<std::string> Split(std::string_view text, char separator);  // keeps empty pieces
bool IsNumber(std::string_view text, size_t maxDigits);                 // decimal digits and nothing else

std::string PercentDecode(std::string_view text, bool plusIsSpace);
std::map<std::string, std::string> ParseForm(std::string_view text);  // a query or a form: NAME=VALUE&NAME=VALUE

std::string ToHex(std::string_view bytes);  // upper case
std::string RandomHex(size_t digits);       // lower case
std::string RandomUuid();

int64_t Now();                                          // Unix time in seconds
std::string UtcText(int64_t time, const char* format);  // strftime's formats; up to 39 characters

// The row of a table with this name, or null.
template <class Row, size_t count>
const Row* FindByName(const Row (&rows)[count], const std::string& name)
{
    const auto* const end = std::end(rows);
    const auto* const found = std::find_if(rows, end, [&name](const Row& row) { return name == row.name; });
    return found == end ? nullptr : found;
}

// The order of names in a vault: case doesn't count.
struct NameLess {
    bool operator()(const std::string& a, const std::string& b) const;
};

}  // namespace vaultsim
