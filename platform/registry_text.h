// The registry editor's export format, version 5, as a structure. The Linux registry keeps its hives in this format,
// and the administrator's tool imports it, on Windows too.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/secret_memory.h"

struct RegistryValue {
    size_t line = 0;                // where it begins, from 1; 0 if it was not read from a text
    SecretText comments;            // whole lines above the value, each with its line feed
    std::basic_string<WCHAR> name;  // empty: the key's default value
    bool removed = false;           // "name"=-
    DWORD type = REG_NONE;
    SecretBytes data;  // texts in UTF-16, with the terminator
};

struct RegistryTextKey {
    size_t line = 0;
    SecretText comments;
    std::basic_string<WCHAR> path;  // with the hive, as written
    bool removed = false;           // [-path]
    std::vector<RegistryValue> values;
};

// Keys and values in the text's order. A key or a value may occur more than once: the last one counts.
struct RegistryText {
    std::vector<RegistryTextKey> keys;
    SecretText closingComments;
};

struct RegistryTextProblem {
    size_t line = 0;             // from 1; 0 for the whole text
    const char* what = nullptr;  // a clause, without a full stop
};

// Reads UTF-8, with or without its byte order mark, or UTF-16 with its mark. Comments begin with ";" and may also end
// a line. False if the text is damaged: *problem is the first error, and *text
// is unusable.
bool ParseRegistryText(std::string_view content, RegistryText* text, RegistryTextProblem* problem);
