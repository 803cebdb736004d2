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
    std::vector<VaultOption> vaults = {{"contoso-keys", true}};
    std::string tenant = "5d0f7c1a-6b7e-4d52-9c53-0a4f2be61d77";
    std::string clientId = "c2b60e34-8a0b-4f5e-a6f3-91d1f5a2ce08";
    std::string clientSecret = "vaultsim~client.secret";
    std::string oid = "8e6f1f0a-2c47-4b7d-93ab-51f0c7d2e9b4";
    std::string address = "127.0.0.1";  // for everything but the control interface
    int controlPort = 0;                // 0: any free port
    int tlsPort = 0;
    int httpPort = 0;
    int arcPort = 0;
    bool arc = false;       // put IDENTITY_ENDPOINT in the env file
    bool rsa = false;       // RSA keys for the server certificates
    bool closeTls = false;  // close each TLS connection after its first response
    bool quiet = false;
};

// Throws std::invalid_argument with a message for the user. `help` gets the usage text if the user asked for it, and
// the options are then meaningless.
Options ParseOptions(std::vector<std::string> arguments, std::string& help);

}  // namespace vaultsim
