// A registry hive as a structure and as text.
//
// Comments stay with the line that follows them; blank lines and the formatting of values are normalized on writing.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/registry_text.h"

struct RegistryKey {
    SecretText comments;
    std::u16string path;  // below the hive, without a backslash at either end; empty: the hive itself
    std::vector<RegistryValue> values;

    RegistryValue* FindValue(std::u16string_view name);
    const RegistryValue* FindValue(std::u16string_view name) const;
};

struct RegistryHive {
    std::vector<RegistryKey> keys;
    SecretText closingComments;

    RegistryKey* FindKey(std::u16string_view path);
    const RegistryKey* FindKey(std::u16string_view path) const;
    // Whether the key, or one below it, exists.
    bool HasKey(std::u16string_view path) const;
    bool HasKeyBelow(std::u16string_view path) const;
    RegistryKey* FindOrAddKey(std::u16string_view path);
};

// rootName: the only hive that the text may name. False when the text is damaged or removes something; *hive is then
// unusable.
bool ParseRegistryFile(std::string_view content, std::u16string_view rootName, RegistryHive* hive);

SecretString FormatRegistryFile(const RegistryHive& hive, std::u16string_view rootName);

// Whether a text can be quoted: no control characters, no broken surrogate pairs. Names must be plain texts;
// other values are written as bytes.
bool IsPlainText(std::u16string_view name);
