// Object identifiers: the content of their DER element, and their dotted text.
#pragma once

#include <string>
#include <string_view>

// False if malformed.
bool ObjectIdToText(std::string_view content, std::string* text);
bool ObjectIdFromText(std::string_view text, std::string* content);
