// A host of the provider inside a test program: attaches the system's code and calls the function table.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/cng_provider.h"
#include "tests/common/client_settings.h"
#include "tests/common/simulator.h"
#include "tests/common/test_clock.h"
#include "tests/common/test_root.h"

using Bytes = std::vector<BYTE>;

// Fixture of end-to-end tests: a fresh root, the simulator reset, settings for client credentials against the vault
// Simulator::kVault in both hives, logging at level 10 and the module attached.
class HostTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Detaches and attaches again, so that changed logging settings take effect.
    void Reattach();
    // Opens a provider; freed in TearDown at the latest.
    NCRYPT_PROV_HANDLE OpenProvider();
    void FreeProvider(NCRYPT_PROV_HANDLE provider);
    // Opens a key; fails the test if that fails.
    NCRYPT_KEY_HANDLE OpenKey(const std::string& name, DWORD flags = NCRYPT_MACHINE_KEY_FLAG);
    void FreeKey(NCRYPT_KEY_HANDLE key);

    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
    TestRoot root;
    TestClock clock;
    Simulator& sim = Simulator::Get();
    NCRYPT_PROV_HANDLE provider = 0;      // opened by OpenProvider
    std::vector<NCRYPT_KEY_HANDLE> keys;  // freed in TearDown
};

// Status by number for messages: EXPECT_EQ(Hex(status), Hex(NTE_FAIL)).
std::string Hex(SECURITY_STATUS status);
