// Object identifiers: the content of their DER element, and their dotted text.
#pragma once

#include <openssl/objects.h>

#include <string>
#include <string_view>

// Empty for an object without an identifier.
std::string ObjectIdText(const ASN1_OBJECT* object);

// False if malformed.
bool ObjectIdToText(std::string_view content, std::string* text);
bool ObjectIdFromText(std::string_view text, std::string* content);
