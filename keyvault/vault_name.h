// The vault's short name, worked out from the template in the settings.
#pragma once

#include "platform/platform.h"

// Longest vault name, in characters.
constexpr size_t kVaultNameLimit = 24;

// Stands for a name that the first sign-in derives from the identity; counts only as the whole name.
constexpr const WCHAR* kIdentityNameMarker = TEXT("oidguid");

// Expands a template ("%D": the machine's DNS name, "%G": the marker, any other escape: nothing; an empty template
// means "%D"), drops dots, lower-cases the ASCII letters and cuts the name to kVaultNameLimit characters. `name` is
// always terminated.
void VaultNameFromTemplate(const WCHAR* nameTemplate, WCHAR (&name)[kVaultNameLimit + 1]);
