// The attribute types of names: object identifiers and their keys in texts.
#pragma once

#include <string>
#include <string_view>

enum class NameText { directory, printable, ia5 };

struct NameAttribute {
    std::u16string_view key;
    std::string_view objectId;
    NameText text;  // what its values may contain
};

// NULL for a type without a key. Returns the key that is used for writing.
const NameAttribute* FindAttributeById(std::string_view objectId);

// Case-insensitive.
const NameAttribute* FindAttributeByKey(std::u16string_view key);
