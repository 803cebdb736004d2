// An independent Base64, to compare with the system's.
#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"

std::string Base64(const std::vector<BYTE>& bytes);     // standard alphabet with fill
std::string Base64Url(const std::vector<BYTE>& bytes);  // the service's form: the other alphabet, without fill
std::vector<BYTE> FromBase64(const std::string& text);  // of either form; throws if it is neither
