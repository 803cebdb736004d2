// The properties of a key, read and put into words.
#pragma once

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

// A member for each property, null when the provider does not have it for this key. "SmartCardKeyCertificate" is left
// alone: asking for it makes the provider publish the key's certificate.
Json KeyProperties(const Key& key);

// The same as columns.
std::string PropertyColumns(const Json& properties, size_t indent);

}  // namespace kelvaroctl
