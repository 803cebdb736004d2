// Private key files, in the forms that the provider imports.
#pragma once

#include <string>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

struct KeyFile {
    const char* kind;       // for messages
    const WCHAR* blobType;  // for the provider
    bool machineKey;        // whether the provider imports this kind as a machine key
    bool encrypted;
    Bytes content;
};

// PKCS#8 as PEM or in DER, or a private RSA blob of CNG. Throws a usage failure for anything else.
KeyFile ReadKeyFile(const std::string& name);

}  // namespace kelvaroctl
