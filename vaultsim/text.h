// Small text helpers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vaultsim {

std::string Lower(std::string_view text);
bool EqualsNoCase(std::string_view a, std::string_view b);
std::vector<std::string> Split(std::string_view text, char separator);  // keeps empty pieces
std::string PercentDecode(std::string_view text, bool plusIsBlank);

std::string RandomHex(size_t digits);
std::string RandomUuid();

int64_t Now();  // Unix time in seconds

// Order of names in a vault: without regard to case.
struct NameLess {
    bool operator()(const std::string& a, const std::string& b) const;
};

}  // namespace vaultsim
