#include "vaultsim/certificate_request.h"

#include <openssl/x509v3.h>

#include <stdexcept>

#include "vaultsim/distinguished_name.h"
#include "vaultsim/x509.h"

namespace vaultsim {

namespace {

struct ExtensionStack {
    STACK_OF(X509_EXTENSION) * stack = sk_X509_EXTENSION_new_null();
    ~ExtensionStack() { sk_X509_EXTENSION_pop_free(stack, X509_EXTENSION_free); }
    void Add(int nid, const std::string& value)
    {
        sk_X509_EXTENSION_push(stack, NewExtension(nullptr, nullptr, nid, value).release());
    }
};

// In the service's order.
void AddExtensions(const Policy& policy, X509_REQ* request)
{
    ExtensionStack extensions;
    if (!policy.usages.empty())
        extensions.Add(NID_key_usage, Join("critical", "", policy.usages));
    if (!policy.extendedUsages.empty())
        extensions.Add(NID_ext_key_usage, Join("", "", policy.extendedUsages));
    if (!policy.dnsNames.empty())
        extensions.Add(NID_subject_alt_name, Join("", "DNS:", policy.dnsNames));
    extensions.Add(NID_basic_constraints, "CA:FALSE");
    if (X509_REQ_add_extensions(request, extensions.stack) != 1)
        throw std::runtime_error("cannot add extensions");
}

}  // namespace

std::string MakeCertificateRequest(const Policy& policy, EVP_PKEY* key)
{
    const X509ReqPtr request(X509_REQ_new());
    X509_REQ_set_version(request.get(), X509_REQ_VERSION_1);
    if (!policy.subject.empty())
        X509_REQ_set_subject_name(request.get(), ParseName(policy.subject).get());
    X509_REQ_set_pubkey(request.get(), key);
    AddExtensions(policy, request.get());
    if (X509_REQ_sign(request.get(), key, EVP_sha256()) <= 0)
        throw std::runtime_error("cannot sign the certificate request");
    return EncodeDer(request.get(), i2d_X509_REQ);
}

}  // namespace vaultsim
