// The public cloud's addresses.
#pragma once

#include "platform/platform.h"

constexpr const WCHAR* kSignInBaseUrl = TEXT("https://login.microsoftonline.com/");
constexpr const WCHAR* kVaultResource = TEXT("https://vault.azure.net");
constexpr const WCHAR* kVaultHostSuffix = TEXT(".vault.azure.net");
constexpr const WCHAR* kInstanceMetadataHost = TEXT("169.254.169.254");
