// Base64 of a test's own, to compare with the system's.
#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"

std::string Base64(const std::vector<BYTE>& bytes);     // standard alphabet with fill
std::string Base64Url(const std::vector<BYTE>& bytes);  // the service's form: the other alphabet, without fill
