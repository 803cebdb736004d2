// A host's operations, and which of their requests a fault hits.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "stress/fault_rules.h"
#include "stress/host.h"
#include "tests/common/test_clock.h"

namespace stress {

// One host, and what an operation needs.
struct Stage {
    ~Stage();
    void SignIn(DWORD certificatesOrKeys);  // opens the provider and the key "p256"

    Host host;
    TestClock clock;
    NCRYPT_PROV_HANDLE provider = 0;
    NCRYPT_KEY_HANDLE key = 0;  // released at the end, if the operation hasn't
    // The operation's results. Those that it doesn't return stay unchanged.
    static constexpr DWORD kUntouched = 0x5A5A5A5A;
    NCRYPT_KEY_HANDLE opened = kUntouched;
    NCRYPT_PROV_HANDLE another = kUntouched;
    DWORD size = kUntouched;
    std::string listed;
    std::vector<BYTE> input = std::vector<BYTE>(32, 7);
    std::vector<BYTE> other = std::vector<BYTE>(64, 8);
};

enum class Service { Directory, Metadata, Arc, Vault };

struct Operation {
    const char* name;
    Kind kind;
    Statuses statuses;
    Service service;
    int step;  // requests of the operation before the one that is hit
    const char* method;
    const char* path;  // part of it
    std::function<void(Stage&)> prepare;
    std::function<SECURITY_STATUS(Stage&)> run;
};

const std::vector<Operation>& Operations();

}  // namespace stress
