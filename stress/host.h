// A host of the provider against the simulator.
#pragma once

#include <set>
#include <string>

#include "platform/cng_provider.h"
#include "tests/common/simulator.h"
#include "tests/common/test_root.h"

namespace stress {

// Throws std::runtime_error with the text unless the condition holds.
void Require(bool holds, const std::string& text);

// "0", "NTE_FAIL", or the number in hexadecimal.
std::string StatusName(SECURITY_STATUS status);

// The containers of the certificates in the machine's store; "unbound" for one without.
std::multiset<std::string> StoredContainers();

// Attaches the module on first use.
const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* FunctionTable();

// A machine with settings for client credentials and plain keys, a fresh vault with the keys "rsa" (2048 bits) and
// "p256", and the module attached. No log.
class Host {
  public:
    Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // All throw if the call fails.
    NCRYPT_PROV_HANDLE OpenProvider();
    NCRYPT_KEY_HANDLE OpenKey(NCRYPT_PROV_HANDLE provider, const std::string& name);
    NCRYPT_KEY_HANDLE NewKey(NCRYPT_PROV_HANDLE provider, const std::string& name);  // P-256, to be finalized

    SECURITY_STATUS Sign(NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key, bool rsa);

    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table;
    Simulator& sim = Simulator::Get();
    TestRoot root;
};

}  // namespace stress
