// Files that an administrator names. Names are UTF-8.
#pragma once

#include <string>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

// Throws a usage failure when the file cannot be read or is larger than maxSize bytes.
Bytes ReadWholeFile(const std::string& name, size_t maxSize);

enum class Readers { Everyone, OwnerOnly };
// Replaces the file. Throws a usage failure when it cannot be written.
void WriteWholeFile(const std::string& name, const Bytes& content, Readers readers = Readers::Everyone);

}  // namespace kelvaroctl
