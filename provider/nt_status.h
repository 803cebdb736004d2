// Converts the NTSTATUS of the platform's cryptography to the SECURITY_STATUS that a host gets.
#pragma once

#include "platform/platform.h"

// NTE_INTERNAL_ERROR for every status that has no counterpart.
SECURITY_STATUS StatusFromNt(NTSTATUS result);
