// The registry editor's export text, read line by line.
#pragma once

#include <string>
#include <vector>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/settings_hive.h"
#include "kelvaroctl/text.h"

namespace kelvaroctl {

struct RegistryEntry {
    size_t line = 0;   // where the entry begins, from 1
    std::string key;   // HKEY_LOCAL_MACHINE\Software\...
    std::string name;  // of the value
    bool remove = false;
    RawValue value;
};

struct RegistryText {
    // Keys that the text names, with their lines; each entry's key is among them.
    struct Key {
        size_t line;
        std::string path;
    };
    std::vector<Key> keys;
    std::vector<RegistryEntry> entries;
};

// content: UTF-8, or UTF-16 little-endian behind its mark. Throws a usage failure that begins with "line N: ".
RegistryText ParseRegistryText(const Bytes& content);

// A usage failure about one line.
Failure LineFailure(size_t line, const std::string& problem);

}  // namespace kelvaroctl
