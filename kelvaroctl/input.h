// What a command reads: a file, or standard input for "-".
#pragma once

#include <functional>
#include <string>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

// Calls take() with each piece of the content. Throws a usage failure if it can't be read.
void ReadInPieces(const std::string& name, const std::function<void(const char* piece, size_t size)>& take);

// Throws a usage failure if the content can't be read or is larger than maxSize bytes.
Bytes ReadInput(const std::string& name, size_t maxSize);

}  // namespace kelvaroctl
