// The platform's cryptography answers with NTSTATUS, a host gets a SECURITY_STATUS.
#pragma once

#include "platform/platform.h"

// NTE_INTERNAL_ERROR for every status that has no counterpart.
SECURITY_STATUS StatusFromNt(NTSTATUS result);
