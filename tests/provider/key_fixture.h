// What the stories about vault keys share: requests as the vault saw them, padding information, answers of special
// form.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "provider/key_object.h"
#include "provider/provider.h"
#include "tests/common/base64.h"
#include "tests/common/service_sample.h"
#include "tests/provider/bytes.h"
#include "tests/provider/fail_each.h"

Bytes Pattern(size_t size);  // 1, 2, 3, ...

// A vault's answer to the read of a key, for answers that the simulator's own keys do not give.
nlohmann::json RsaAnswer(const Bytes& n, const Bytes& e = {1, 0, 1});
nlohmann::json CurveAnswer(const std::string& crv, const Bytes& x, const Bytes& y,
                           const std::vector<std::string>& ops = {"sign", "verify"}, const std::string& algIdTag = "");

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

class KeyTest : public HostTest {
  protected:
    // These three go without a buffer when room is 0. One that fails must leave the buffer alone.
    Result Sign(NCRYPT_KEY_HANDLE key, void* padding, Bytes hash, DWORD flags, DWORD room = 600);
    Result Encrypt(NCRYPT_KEY_HANDLE key, Bytes input, DWORD flags, DWORD room = 600, void* padding = nullptr);
    Result Decrypt(NCRYPT_KEY_HANDLE key, Bytes input, DWORD flags, DWORD room = 600);
    SECURITY_STATUS Verify(NCRYPT_KEY_HANDLE key, void* padding, Bytes hash, Bytes signature, DWORD flags);

    Result Export(NCRYPT_KEY_HANDLE key, const char* blobType, DWORD flags = 0);

    struct Found {
        SECURITY_STATUS status;
        std::string name;
        std::string algId;
        DWORD flags;
    };
    // One step of a walk; the name block goes back at once.
    Found Next(PVOID* state, DWORD flags = NCRYPT_MACHINE_KEY_FLAG);

    // What the next request whose target has `path` in it is answered with.
    void Answer(const std::string& path, int status, const std::string& body = "");
    void AddRsaKey(const std::string& name);
    void AddCurveKey(const std::string& name, const std::string& crv);
    void AddOneOfEach();  // "rsa", "p256", "p384" and "p521"
    // Opens a key of which the vault says `answer`.
    NCRYPT_KEY_HANDLE OpenAnswered(const nlohmann::json& answer);

    // Bodies of the requests of the journal whose target has "/action?".
    std::vector<std::string> Bodies(const std::string& action);
    std::vector<std::string> ErrorLines() const;  // lines of level 1, without the level
    std::string LastErrorLine() const;            // "" when there is none

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
        KVCClient* client_;
    };
};
