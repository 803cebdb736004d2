// The platform's cryptography: its status, as the SECURITY_STATUS that a host gets, and its handles.
#pragma once

#include "platform/owner.h"
#include "platform/platform.h"

// NTE_INTERNAL_ERROR for every status that has no counterpart.
SECURITY_STATUS StatusFromNt(NTSTATUS result);

inline void CloseAlgorithm(BCRYPT_ALG_HANDLE algorithm)
{
    BCryptCloseAlgorithmProvider(algorithm, 0);
}
using AlgorithmPtr = Owner<void, CloseAlgorithm>;

// 0, or the platform's status; *algorithm is then unchanged.
SECURITY_STATUS OpenAlgorithm(const WCHAR* name, ULONG flags, AlgorithmPtr* algorithm);
