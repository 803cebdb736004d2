// The attribute types of names: object identifiers and the keys that stand for them in texts.
#pragma once

#include <string>
#include <string_view>

enum class NameText { directory, printable, ia5 };

struct NameAttribute {
    std::u16string_view key;
    std::string_view objectId;
    NameText text;  // what its values may be
};

// NULL for a type without a key. The key that texts are written with stands first.
const NameAttribute* FindAttributeById(std::string_view objectId);

// Without regard to case.
const NameAttribute* FindAttributeByKey(std::u16string_view key);
