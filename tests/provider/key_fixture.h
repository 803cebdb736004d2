// What the stories about vault keys share: requests as the vault saw them, padding information, answers of special
// form.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "provider/key_object.h"
#include "provider/provider.h"
#include "tests/common/host.h"
#include "tests/provider/fail_each.h"

std::string Base64(const Bytes& bytes);     // standard alphabet with fill
std::string Base64Url(const Bytes& bytes);  // the service's form
Bytes Pattern(size_t size);                 // 1, 2, 3, ...
Bytes operator+(Bytes left, const Bytes& right);

// A vault's answer to the read of a key, for answers that the simulator's own keys do not give.
nlohmann::json RsaAnswer(const Bytes& n, const Bytes& e = {1, 0, 1});
nlohmann::json CurveAnswer(const std::string& crv, const Bytes& x, const Bytes& y,
                           const std::vector<std::string>& ops = {"sign", "verify"}, const std::string& algIdTag = "");

std::string ReadServiceSample(const std::string& name);  // a file of tests/data/service, without ".json"

// The padding information that belongs to the flags. hash: NULL for a missing name.
class Padding {
  public:
    Padding(DWORD flags, const char* hash);
    void* info() { return pss_ ? static_cast<void*>(&pssInfo_) : static_cast<void*>(&pkcs1Info_); }

  private:
    bool pss_;
    TextString name_;
    BCRYPT_PKCS1_PADDING_INFO pkcs1Info_ = {};
    BCRYPT_PSS_PADDING_INFO pssInfo_ = {};
};

struct Result {
    SECURITY_STATUS status = 0;
    Bytes bytes;       // what was written, when the call succeeded
    DWORD needed = 0;  // *pcbResult
};

class KeyTest : public HostTest {
  protected:
    // Without a buffer when room is 0.
    Result Sign(NCRYPT_KEY_HANDLE key, void* padding, Bytes hash, DWORD flags, DWORD room = 600);
    SECURITY_STATUS Verify(NCRYPT_KEY_HANDLE key, void* padding, Bytes hash, Bytes signature, DWORD flags);

    // Asks for the size, then for the bytes.
    Result Export(NCRYPT_KEY_HANDLE key, const char* blobType, DWORD flags = 0);

    struct Found {
        SECURITY_STATUS status;
        std::string name;
        std::string algId;
        DWORD flags;
    };
    // One step of a walk; the name block goes back at once.
    Found Next(PVOID* state, DWORD flags = NCRYPT_MACHINE_KEY_FLAG);

    void AddRsaKey(const std::string& name);
    void AddCurveKey(const std::string& name, const std::string& crv);
    void AddOneOfEach();  // "rsa", "p256", "p384" and "p521"
    // Opens a key of which the vault says `answer`.
    NCRYPT_KEY_HANDLE OpenAnswered(const nlohmann::json& answer);

    // Bodies of the requests of the journal whose target has "/action?".
    std::vector<std::string> Bodies(const std::string& action);
    std::vector<std::string> ErrorLines() const;  // lines of level 1, without the level

    static KSP_KEY* Record(NCRYPT_KEY_HANDLE key) { return reinterpret_cast<KSP_KEY*>(key); }
    KSP_PROVIDER* ProviderRecord() { return reinterpret_cast<KSP_PROVIDER*>(OpenProvider()); }

    // Takes the provider's machine client away for its own life.
    class WithoutClient {
      public:
        explicit WithoutClient(KSP_PROVIDER* record) : record_(record), client_(record->machineKvc)
        {
            record_->machineKvc = nullptr;
        }
        ~WithoutClient() { record_->machineKvc = client_; }
        WithoutClient(const WithoutClient&) = delete;
        WithoutClient& operator=(const WithoutClient&) = delete;

      private:
        KSP_PROVIDER* record_;
        KVC* client_;
    };
};
