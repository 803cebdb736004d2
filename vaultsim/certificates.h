// Certificates of a vault.
#pragma once

#include "vaultsim/refusal.h"
#include "vaultsim/request.h"

namespace vaultsim {

// What is particular to certificates: see deletion.h.
struct Certificates {
    using Object = CertificateObject;
    using Version = CertificateVersion;
    static constexpr char kWord[] = "Certificate";
    static constexpr char kArea[] = "deletedcertificates";
    static ByName<CertificateObject>& Live(Vault& vault) { return vault.certificates; }
    static ByName<Deleted<CertificateObject>>& Area(Vault& vault) { return vault.deletedCertificates; }
    static Refusal Missing(const std::string& name);
    static Json Bundle(const Vault& vault, const CertificateObject& certificate, const CertificateVersion& version);
    static Json Item(const Vault& vault, const CertificateObject& certificate);
    static void Detach(Vault& vault, Deleted<CertificateObject>& deleted);
};

}  // namespace vaultsim
