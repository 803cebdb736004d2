// What all TLS connections share, as they do on Windows: the trusted roots and the sessions.
#pragma once

#include <curl/curl.h>
#include <openssl/x509_vfy.h>

#include <array>
#include <memory>

#include "platform/linux/fork_safe_lock.h"
#include "platform/owner.h"

namespace winhttp {

class TlsShare {
  public:
    // Reads the roots from a file of certificates; throws std::bad_alloc.
    explicit TlsShare(const char* path);

    // NULL when the file could not be read or holds no certificate. Owned by the share.
    X509_STORE* roots() const { return roots_.get(); }
    // For CURLOPT_SHARE: a connection resumes the session of an earlier one to the same server. Owned by the share,
    // which must outlive the handles that use it.
    CURLSH* sessions() const { return sessions_.get(); }

  private:
    static void Lock(CURL*, curl_lock_data data, curl_lock_access, void* self);
    static void Unlock(CURL*, curl_lock_data data, void* self);

    std::array<ForkSafeLock, CURL_LOCK_DATA_LAST> locks_;
    Owner<X509_STORE, X509_STORE_free> roots_;
    Owner<CURLSH, curl_share_cleanup> sessions_;
};

// The share for the roots in $SSL_CERT_FILE, or in the system's bundle. If the file has changed it is read again, and
// earlier sessions are no longer resumed. Throws std::bad_alloc.
std::shared_ptr<const TlsShare> AcquireTlsShare();

}  // namespace winhttp
