// A certificate of a store as a file: PEM, with the provider information, if any, above it, one field per line:
//
//     KeyProvInfo.ContainerName: web01
//     KeyProvInfo.ProvName: Zandrel Key Storage Provider for Key Vault
//     KeyProvInfo.ProvType: 0
//     KeyProvInfo.Flags: 32
//     KeyProvInfo.KeySpec: 0
//     -----BEGIN CERTIFICATE-----
//
// UTF-8. In the two texts a backslash is written `\\`, a line feed `\n` and a carriage return `\r`; a backslash before
// anything else is kept. Other lines above the PEM block are skipped.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/win_types.h"

struct KeyProviderInfo {
    std::u16string containerName;
    std::u16string providerName;
    DWORD providerType = 0;
    DWORD flags = 0;
    DWORD keySpec = 0;
};

struct CertificateRecord {
    std::string der;
    std::optional<KeyProviderInfo> keyProvider;
};

// False when the file is damaged; the DER bytes are not checked.
bool ParseCertificateFile(std::string_view content, CertificateRecord* certificate);

std::string FormatCertificateFile(const CertificateRecord& certificate);
