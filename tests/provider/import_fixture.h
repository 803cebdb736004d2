// What the stories about key import share: parameter lists, blobs, DER in small pieces, the kept blob of a key.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "tests/provider/key_fixture.h"

constexpr DWORD kLater = NCRYPT_DO_NOT_FINALIZE_FLAG;  // the import leaves the key unfinalized

// The password of the encrypted files, terminated.
inline Bytes Secret(const std::string& password = "secret")
{
    return TextBytes(password);
}
// A file of tests/data/pkcs8, without ".der".
Bytes ReadPkcs8(const std::string& name);

// An element of DER.
Bytes Der(BYTE tag, const Bytes& contents);
// rsa2048 with these attributes, each a DER element of its own.
Bytes WithAttributes(const Bytes& attributes);
// An attribute of one value. objectId: its DER contents.
Bytes Attribute(const Bytes& objectId, const Bytes& value);
Bytes KeyUsageAttribute(const Bytes& value);

// A parameter list, alive as long as this.
class Parameters {
  public:
    Parameters() = default;
    Parameters(std::initializer_list<std::pair<DWORD, Bytes>> buffers)
    {
        for (const auto& buffer : buffers)
            Add(buffer.first, buffer.second);
    }
    Parameters(const Parameters&) = delete;
    Parameters& operator=(const Parameters&) = delete;

    void Add(DWORD type, const Bytes& bytes);
    NCryptBufferDesc* list();

    ULONG version = 0;
    std::vector<NCryptBuffer> rows;  // may be bent

  private:
    std::deque<Bytes> bytes_;
    NCryptBufferDesc list_ = {};
};

struct ParameterRow {
    const char* name;
    std::vector<std::pair<DWORD, Bytes>> buffers;
    SECURITY_STATUS status;
    std::string keyName = "(none)";  // of the key
};

class ImportTest : public KeyTest {
  protected:
    void SetUp() override;
    void TearDown() override;

    // The bare call. *key is the caller's.
    SECURITY_STATUS ImportInto(NCRYPT_KEY_HANDLE* key, const char* type, const Bytes& data, NCryptBufferDesc* list,
                               DWORD flags = 0);
    // Tries an import; a failure must leave the handle alone, log one line of level 1 and make no request.
    SECURITY_STATUS Import(const char* type, const Bytes& data, Parameters* parameters = nullptr, DWORD flags = 0);
    SECURITY_STATUS ImportPkcs8(const Bytes& data, Parameters* parameters = nullptr, DWORD flags = 0)
    {
        return Import("PKCS8_PRIVATEKEY", data, parameters, flags);
    }
    // Imports the data with each of the lists.
    void ImportWith(const std::vector<ParameterRow>& rows, const char* type, const Bytes& data, DWORD flags,
                    ULONG version = 0);
    // Of the last import that succeeded; freed with the next one.
    KSP_KEY* imported() const { return Record(imported_); }
    void FreeImported();
    // The blob under its protection.
    Bytes KeptBlob() const;
    // Whether the parts of a kept "RSA3" blob are those of `der`, every number with its bytes in the other order.
    void ExpectBlobOf(const Bytes& der, DWORD bits) const;

    NCRYPT_KEY_HANDLE imported_ = 0;
};
