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
    ULONGLONG start = 0;     // 100 ns since 1601; the module publishes the newest
    int64_t end = 0;         // seconds since 1970
    std::string notBefore;   // 2026-01-31T09:05:07Z
    std::string notAfter;
    Bytes der;
    // Its reference to a private key; both empty if there is none.
    std::string container;
    std::string provider;

    bool IsBound() const;  // to this system's provider
    bool IsExpired() const;
    int64_t DaysLeft() const;  // whole days until it expires; negative after that
};

// The fields of a certificate as texts.
std::string NameText(const CERT_NAME_BLOB& name);  // in X.500 string form
int64_t UnixTime(const FILETIME& time);            // seconds since 1970
std::string TimeText(__time64_t seconds);          // 2026-01-31T09:05:07Z

// All certificates. Throws a configuration failure if the store cannot be opened.
std::vector<StoredCertificate> ReadPersonalStore(bool machine);

// Adds a DER certificate to the store and binds it to a key of the provider; one that is already there is only bound.
// Returns the stored certificate. Throws a configuration failure if the platform reports an error.
StoredCertificate InstallCertificate(bool machine, const Bytes& der, const std::string& keyName);

// Removes the certificate with that thumbprint and returns it; nullopt if there is none. Throws a configuration failure
// if the platform reports an error.
std::optional<StoredCertificate> RemoveCertificate(bool machine, const std::string& thumbprint);

// The certificate that the module publishes for a key: the newest that is bound to it and not too large. nullopt if
// there is none; *tooLarge: whether one was skipped for its size.
std::optional<StoredCertificate> CertificateToPublish(bool machine, const std::string& keyName, bool* tooLarge);

}  // namespace kelvaroctl
