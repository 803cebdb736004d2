// Key import: parameter lists, pieces of DER, the private key that the provider keeps.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "platform/owner.h"
#include "tests/provider/provider_fixture.h"

constexpr DWORD kLater = NCRYPT_DO_NOT_FINALIZE_FLAG;  // the import leaves the key unfinalized

// An element of DER.
Bytes Der(BYTE tag, const Bytes& contents);
// rsa2048 with these attributes, each a DER element.
Bytes WithAttributes(const Bytes& attributes);
// An attribute with one value. objectId: its DER contents; the default is a key usage.
Bytes Attribute(const Bytes& value, const Bytes& objectId = {0x55, 0x1D, 0x0F});

// A parameter list, alive as long as this.
class Parameters : private NonCopyable {
  public:
    Parameters(std::initializer_list<std::pair<DWORD, Bytes>> buffers)
    {
        for (const auto& buffer : buffers)
            Add(buffer.first, buffer.second);
    }

    void Add(DWORD type, const Bytes& bytes)
    {
        bytes_.push_back(bytes);
        rows.push_back({static_cast<ULONG>(bytes.size()), type, bytes_.back().data()});
    }
    NCryptBufferDesc* list()
    {
        list_ = {version, static_cast<ULONG>(rows.size()), rows.data()};
        return &list_;
    }

    ULONG version = 0;
    std::vector<NCryptBuffer> rows;  // may be changed

  private:
    std::deque<Bytes> bytes_;
    NCryptBufferDesc list_ = {};
};

class ImportTest : public ProviderTest {
  protected:
    void SetUp() override
    {
        ProviderTest::SetUp();
        OpenProvider();
    }

    // Only the call. The caller owns *key.
    SECURITY_STATUS ImportInto(NCRYPT_KEY_HANDLE* key, const char* type, const Bytes& data, NCryptBufferDesc* list,
                               DWORD flags = 0);
    // Tries an import; a failure must leave the handle alone, log one line of level 1 and make no request.
    std::string Import(const char* type, const Bytes& data, Parameters* parameters = nullptr, DWORD flags = 0);
    std::string ImportPkcs8(const Bytes& data, Parameters* parameters = nullptr, DWORD flags = 0)
    {
        return Import("PKCS8_PRIVATEKEY", data, parameters, flags);
    }
    // Imports the data, unfinalized, with each list of parameters that tests/data/keys.txt has for the running test.
    void ImportRows(const char* type, const Bytes& data, ULONG version = 0, const Bytes& store = {});
    // Of the last import that succeeded; freed with the next one.
    KSP_KEY* imported() const { return Record(imported_); }
    void FreeImported()
    {
        if (imported_)
            FreeKey(std::exchange(imported_, 0));
    }
    // The result of an import without a name: finalized or not, of the machine or the user, and no requests.
    void ExpectNameless(const Bytes& blob, const char* type, bool finalized, bool machine);

    NCRYPT_KEY_HANDLE imported_ = 0;
};
