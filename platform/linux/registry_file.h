// A registry hive as a record, and its text form: the registry editor's export, version 5.
//
// Comments (lines that begin with ";") stay with the line that follows them; blank lines and the spelling of the values
// are made anew on writing.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/win_types.h"

struct RegistryValue {
    std::u16string comments;  // whole lines above the value
    std::u16string name;      // empty: the key's default value
    DWORD type = 0;
    std::vector<BYTE> data;
};

struct RegistryKey {
    std::u16string comments;
    std::u16string path;  // below the hive, without a backslash at either end; empty: the hive itself
    std::vector<RegistryValue> values;

    RegistryValue* FindValue(std::u16string_view name);
    const RegistryValue* FindValue(std::u16string_view name) const;
};

// Wipes its values at the end, since a client secret may be among them.
struct RegistryHive {
    std::vector<RegistryKey> keys;
    std::u16string closingComments;

    RegistryHive() = default;
    ~RegistryHive();
    RegistryHive(const RegistryHive&) = delete;
    RegistryHive& operator=(const RegistryHive&) = delete;

    RegistryKey* FindKey(std::u16string_view path);
    const RegistryKey* FindKey(std::u16string_view path) const;
    // Whether the key, or one below it, is there.
    bool HasKey(std::u16string_view path) const;
    bool HasKeyBelow(std::u16string_view path) const;
    RegistryKey* FindOrAddKey(std::u16string_view path);
};

// Reads UTF-8, with or without its mark, or UTF-16 with its mark. rootName: the only hive that the file may speak of.
// False when the file is damaged; *hive is then of no use.
bool ParseRegistryFile(std::string_view content, std::u16string_view rootName, RegistryHive* hive);

std::string FormatRegistryFile(const RegistryHive& hive, std::u16string_view rootName);

// Whether the quoted form carries a text: no control characters, no broken surrogate pairs. Names must be plain texts;
// values that are not are written as bytes.
bool IsPlainText(std::u16string_view name);
