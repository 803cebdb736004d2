// Reads a key's properties and formats them.
#pragma once

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

// One member per property, null if the provider does not have it for this key. Leaves out "SmartCardKeyCertificate":
// reading it makes the provider publish the key's certificate.
Json KeyProperties(const Key& key);

// What the key may be used for: {"sign","decrypt"}. The provider reports neither whether a key is enabled nor its
// dates.
std::vector<std::string> KeyOperations(const Key& key);

// The same as columns.
std::string PropertyColumns(const Json& properties, size_t indent);

}  // namespace kelvaroctl
