// The simulator's own certificate authority and the server certificates that it issues.
#pragma once

#include <mutex>
#include <string>

#include "vaultsim/openssl_ptr.h"

namespace vaultsim {

class Authority {
  public:
    // Takes the authority of DIRECTORY/ca.pem and ca.key, or makes one and writes both. `rsa`: RSA keys in place of
    // curve keys.
    Authority(const std::string& directory, bool rsa);

    // TLS with the certificate of this mode: "good", "wrong-host", "unknown-root", "expired", "not-yet-valid".
    // Throws std::invalid_argument for any other.
    void Select(const std::string& mode);

    // The context of the mode selected last. Each has ticket keys of its own, so that no session outlives its
    // certificate.
    SslContext Current() const;

  private:
    struct Pair {
        Pkey key;
        X509Ptr certificate;
    };
    Pkey NewKey() const;
    Pair NewRoot(const std::string& subject) const;
    bool Load(const std::string& directory);
    SslContext MakeContext(const std::string& mode) const;

    const bool rsa_;
    Pair root_;
    Pkey serverKey_;
    mutable std::mutex mutex_;
    SslContext current_;
};

}  // namespace vaultsim
