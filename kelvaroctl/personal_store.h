// The personal certificate store of the machine or of the user.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

struct StoredCertificate {
    std::string subject;     // in X.500 string form
    std::string thumbprint;  // SHA-1, 40 upper-case digits
    ULONGLONG start = 0;     // 100 ns since 1601; the module takes the newest by it
    std::string notBefore;   // 2026-01-31T09:05:07Z
    std::string notAfter;
    Bytes der;
    // How it names its private key; both empty without one.
    std::string container;
    std::string provider;

    bool IsBound() const;  // to this system's provider
    bool IsExpired() const;
};

// All certificates. Throws a configuration failure when the store cannot be opened.
std::vector<StoredCertificate> ReadPersonalStore(bool machine);

// Puts a certificate in DER form into the store, bound to a key of the provider; one that is there already is bound
// anew. Returns it as it is then. Throws a configuration failure when the platform refuses.
StoredCertificate InstallCertificate(bool machine, const Bytes& der, const std::string& keyName);

// The certificate that the module publishes for a key: the newest that is bound to it and not too large. nullopt when
// there is none; *tooLarge tells whether one was passed over for its size.
std::optional<StoredCertificate> CertificateToPublish(bool machine, const std::string& keyName, bool* tooLarge);

}  // namespace kelvaroctl
