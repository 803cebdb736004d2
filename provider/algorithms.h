// The algorithms on offer.
#pragma once

#include "platform/platform.h"

// Whether algName is, letter for letter, one of the names that a key can be created with.
bool IsOfferedAlgorithm(const WCHAR* algName);
