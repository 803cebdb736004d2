// CNG's configuration, as published: how a provider is registered with the router, for the Linux build. No bodies.
#pragma once

#include "platform/linux/win_constants.h"

#define CRYPT_DEFAULT_CONTEXT u"Default"
#define NCRYPT_KEY_STORAGE_ALGORITHM u"KEY_STORAGE"

struct CRYPT_INTERFACE_REG {
    ULONG dwInterface;
    ULONG dwFlags;
    ULONG cFunctions;
    PWSTR* rgpszFunctions;
};
using PCRYPT_INTERFACE_REG = CRYPT_INTERFACE_REG*;

struct CRYPT_IMAGE_REG {
    PWSTR pszImage;
    ULONG cInterfaces;
    PCRYPT_INTERFACE_REG* rgpInterfaces;
};
using PCRYPT_IMAGE_REG = CRYPT_IMAGE_REG*;

struct CRYPT_PROVIDER_REG {
    ULONG cAliases;
    PWSTR* rgpszAliases;
    PCRYPT_IMAGE_REG pUM;
    PCRYPT_IMAGE_REG pKM;
};
using PCRYPT_PROVIDER_REG = CRYPT_PROVIDER_REG*;

struct CRYPT_CONTEXT_FUNCTION_PROVIDERS {
    ULONG cProviders;
    PWSTR* rgpszProviders;
};
using PCRYPT_CONTEXT_FUNCTION_PROVIDERS = CRYPT_CONTEXT_FUNCTION_PROVIDERS*;
