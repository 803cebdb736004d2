// The simulator's certificate authority and the server certificates it issues.
#pragma once

#include <mutex>
#include <string>

#include "vaultsim/openssl_ptr.h"

namespace vaultsim {

class Authority {
  public:
    // Loads the authority from DIRECTORY/ca.pem and ca.key, or creates one and writes both. `rsa`: RSA instead of EC
    // keys.
    Authority(const std::string& directory, bool rsa);

    // Switches to the certificate of this mode: "good", "wrong-host", "unknown-root", "expired", "not-yet-valid".
    // Throws std::invalid_argument for others.
    void Select(const std::string& mode);

    // The context of the selected mode. Each has its own ticket keys, so that no session outlives its certificate.
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
