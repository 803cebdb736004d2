// The vault's short name, made from the template in the settings.
#pragma once

#include "platform/platform.h"

// Longest vault name, in characters.
constexpr size_t kVaultNameLimit = 24;

// A placeholder for a name that the first sign-in derives from the identity; effective only as the entire name.
constexpr const WCHAR* kIdentityNameMarker = TEXT("oidguid");

// Expands a template ("%D": the machine's DNS name, "%G": the marker, any other escape: nothing; an empty template is
// "%D"), removes dots, converts ASCII letters to lower case, and cuts the name to kVaultNameLimit characters.
void VaultNameFromTemplate(const WCHAR* nameTemplate, WCHAR (&name)[kVaultNameLimit + 1]);
