// A signed-in call record of a client of the simulator's vault.
#pragma once

#include "keyvault/kvkey.h"
#include "tests/common/host.h"
#include "tests/common/service_sample.h"
#include "tests/keyvault/client_fixture.h"

std::string OrNone(const WCHAR* text);  // "(NULL)" for NULL

// A record that goes with its blocks.
struct OwnKey : KVKey {
    OwnKey() : KVKey{} {}
    ~OwnKey() { KVCFreeKVKey(this); }
    OwnKey(const OwnKey&) = delete;
    OwnKey& operator=(const OwnKey&) = delete;
};

// Logging stands at level 10 and the log is empty, and so is the journal, when a test begins.
class VaultTest : public ClientTest {
  protected:
    void SetUp() override;
    void TearDown() override;

    void Throttle(const std::string& path, int times, int skip = 0);
    Strings LinesUpTo(int level) const;  // of the log, each with its level, but for the transport's own
    Strings Bodies();                    // of all requests to the vault, in order

    ClientPtr client;
    KVCCall call;
};
