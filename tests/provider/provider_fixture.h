// The module attached to a machine of its own, logging at level 10; nothing here needs a vault.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "tests/provider/bytes.h"

class ProviderTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    NCRYPT_PROV_HANDLE Open();  // freed in TearDown
    // A provider that is opened on first use.
    NCRYPT_PROV_HANDLE First();
    // A pending key of First()'s provider, freed in TearDown. name: "" for none.
    KSP_KEY* NewKey(const std::string& algorithm, const std::string& name = "k", DWORD machineFlag = 0x20);
    static NCRYPT_KEY_HANDLE Handle(KSP_KEY* key) { return reinterpret_cast<NCRYPT_KEY_HANDLE>(key); }
    static KSP_PROVIDER* Record(NCRYPT_PROV_HANDLE provider) { return reinterpret_cast<KSP_PROVIDER*>(provider); }

    Result GetProvider(const std::string& name);
    Result GetKey(KSP_KEY* key, const std::string& name, DWORD flags = 0);
    SECURITY_STATUS SetKey(KSP_KEY* key, const std::string& name, const Bytes& value, DWORD flags = 0);

    void Quiet();  // attaches again without a log
    // Both hives without a value, but for the log's directory.
    void ClearSettings();
    // Log lines that contain `part`, in order.
    std::vector<std::string> LinesWith(const std::string& part);

    TestRoot root;
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = &KelvaroFunctionTable;

  private:
    std::vector<NCRYPT_PROV_HANDLE> providers_;
    std::vector<KSP_KEY*> keys_;
};
