// The command line.
#pragma once

#include <string>
#include <vector>

namespace vaultsim {

struct VaultOption {
    std::string name;
    bool premium = true;
};

struct Options {
    std::string directory;
    std::vector<VaultOption> vaults;  // contoso-keys when none is named
    std::string tenant = "5d0f7c1a-6b7e-4d52-9c53-0a4f2be61d77";
    std::string clientId = "c2b60e34-8a0b-4f5e-a6f3-91d1f5a2ce08";
    std::string clientSecret = "vaultsim~client.secret";
    std::string oid = "8e6f1f0a-2c47-4b7d-93ab-51f0c7d2e9b4";
    std::string address = "127.0.0.1";  // where all but the control interface listen
    int controlPort = 0;                // 0: the kernel's choice
    int tlsPort = 0;
    int httpPort = 0;
    int arcPort = 0;
    bool arc = false;       // IDENTITY_ENDPOINT stands in the env file
    bool rsa = false;       // server certificates with RSA keys
    bool closeTls = false;  // each connection with TLS is closed after its first answer
    bool quiet = false;
};

// Throws std::invalid_argument with a text for the user. `help` asks for kUsage.
Options ParseOptions(const std::vector<std::string>& arguments, bool& help);

extern const char kUsage[];

}  // namespace vaultsim
