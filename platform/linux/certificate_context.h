// The object behind a PCCERT_CONTEXT. Holds a reference to its store.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/certificate.h"
#include "platform/linux/certificate_store.h"

// The file names of an enumeration, shared by the contexts that it returns.
using StoreListing = std::shared_ptr<const std::vector<std::string>>;

class CertificateContext : public CERT_CONTEXT {
  public:
    static CertificateContext* From(PCCERT_CONTEXT context)
    {
        return static_cast<CertificateContext*>(const_cast<CERT_CONTEXT*>(context));
    }

    // NULL with *error if `encoded` doesn't begin with a certificate. store: NULL, or the certificate's store.
    static std::unique_ptr<CertificateContext> Make(DWORD encodingType, std::string_view encoded,
                                                    CertificateStore* store, LONG* error);

    CertificateStore* store() const { return store_.get(); }
    const std::string& sha1() const { return sha1_; }
    std::string FileName() const { return CertificateStore::FileNameOf(sha1_); }

    std::optional<KeyProviderInfo> keyProvider() const;
    // In memory only, or in the store as well; the latter throws Failure.
    void KeepKeyProvider(std::optional<KeyProviderInfo> info);
    void StoreKeyProvider(KeyProviderInfo info);

    // The position of the enumeration that returned this context.
    StoreListing listing;
    size_t position = 0;

  private:
    CertificateContext() : CERT_CONTEXT{} {}

    Certificate certificate_;
    std::string sha1_;
    ObjectRef<CertificateStore> store_;
    mutable std::mutex mutex_;
    std::optional<KeyProviderInfo> keyProvider_;
};
