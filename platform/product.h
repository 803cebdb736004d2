// The names by which other programs know the product. The version resource (provider/CMakeLists.txt) and the Windows
// package state the provider's name once more.
#pragma once

#include "platform/platform.h"

// The name under which the router registers it, hosts open it, and certificates refer to it.
inline constexpr WCHAR kProviderName[] = TEXT("Zandrel Key Storage Provider for Key Vault");

// Under HKEY_LOCAL_MACHINE for machine keys, under HKEY_CURRENT_USER for user keys.
inline constexpr WCHAR kSettingsKey[] = TEXT("Software\\Zandrel\\Kelvaro");

// The optional entropy of all protected secrets, as little-endian words. A change would make stored secrets unreadable.
inline constexpr uint32_t kSecretEntropy[5] = {0x5D1C93A7, 0x2EF04B68, 0x91B7D63C, 0x0A84E25F, 0xC36F1E92};
