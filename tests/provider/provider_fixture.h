// A host that uses the function table: its keys, properties and operations, the vault's requests and answers, and the
// log.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "platform/owner.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "tests/common/base64.h"
#include "tests/common/service_sample.h"
#include "tests/provider/bytes.h"

using Lines = std::vector<std::string>;

constexpr char kDone[] = "0x00000000";
constexpr DWORD kMachine = NCRYPT_MACHINE_KEY_FLAG;
constexpr DWORD kOnly = NCRYPT_PERSIST_ONLY_FLAG;

// The vault's answer when a key is read, for keys that the simulator can't have.
json RsaAnswer(const Bytes& n);
json CurveAnswer(const std::string& crv, const Bytes& x, const Bytes& y,
                 const std::vector<std::string>& ops = {"sign", "verify"}, const std::string& algIdTag = "");

class ProviderTest : public HostTest {
  protected:
    // A key that isn't finalized yet; without a name it never reaches the vault. Freed in TearDown.
    NCRYPT_KEY_HANDLE Pending(const char* algorithm, const char* name = nullptr, DWORD flags = kMachine);
    // For a pending key that the test itself frees or deletes.
    void Forget(NCRYPT_KEY_HANDLE key) { keys.erase(std::remove(keys.begin(), keys.end(), key), keys.end()); }
    SECURITY_STATUS Finalize(NCRYPT_KEY_HANDLE key, DWORD flags = 0)
    {
        return table->FinalizeKey(provider, key, flags);
    }

    // Without a key: the provider's properties.
    Result GetKey(NCRYPT_KEY_HANDLE key, const std::string& property, DWORD flags = 0);
    SECURITY_STATUS SetKey(NCRYPT_KEY_HANDLE key, const std::string& property, Bytes value, DWORD flags = 0);
    // The private blob, unprotected.
    static Bytes KeptBlob(const KSP_KEY& key);

    // There is no buffer if room is 0. A call that fails must not change the buffer. hashName: NULL for a call without
    // padding information, "" for information without a name.
    Result Sign(NCRYPT_KEY_HANDLE key, Bytes hash, DWORD flags = 0, const char* hashName = nullptr, DWORD room = 600);
    Result Encrypt(NCRYPT_KEY_HANDLE key, Bytes input, DWORD flags, DWORD room = 600)
    {
        return Transform(table->Encrypt, key, std::move(input), flags, room);
    }
    Result Decrypt(NCRYPT_KEY_HANDLE key, Bytes input, DWORD flags, DWORD room = 600)
    {
        return Transform(table->Decrypt, key, std::move(input), flags, room);
    }
    std::string Verify(NCRYPT_KEY_HANDLE key, Bytes hash, Bytes signature, DWORD flags = 0,
                       const char* hashName = nullptr);
    Result Export(NCRYPT_KEY_HANDLE key, const char* blobType, DWORD flags = 0)
    {
        return ReadAsked([&](BYTE* output, DWORD size, DWORD* result) {
            return table->ExportKey(OpenProvider(), key, 0, Wide(blobType).c_str(), nullptr, output, size, result,
                                    flags);
        });
    }

    struct Found {
        SECURITY_STATUS status;
        std::string name;
        std::string algId;
        DWORD flags;
    };
    // One step of an enumeration. Frees the name.
    Found Next(PVOID* state, DWORD flags = kMachine);

    // The answer to the next requests whose target contains `path`.
    void Answer(const std::string& path, int status, const std::string& body = "", int times = 1)
    {
        sim.Fault({{"path", path}, {"action", "status"}, {"status", status}, {"body", body}, {"times", times}});
    }
    // type: "RSA", for the same key of 2048 bits each time, or a curve.
    void AddKey(const std::string& name, const std::string& type, const char* vault = Simulator::kVault)
    {
        sim.AddKey(vault, type == "RSA" ? json{{"name", name}, {"pem", PrivateKeyPem("rsa2048")}}
                                        : json{{"name", name}, {"kty", "EC"}, {"crv", type}});
    }
    // Opens a key for which the vault returns this record.
    NCRYPT_KEY_HANDLE OpenAnswered(const json& answer)
    {
        Answer("/keys/special?", 200, answer.dump());
        return OpenKey("special");
    }
    // The bodies of the journal's requests whose target contains "/action?".
    std::vector<json> Bodies(const std::string& action);

    void SetLogLevel(DWORD level)
    {
        root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", level);
        Reattach();
    }
    Lines ErrorLines() const;  // lines of level 1, without the level
    // "" when there is none
    std::string LastErrorLine() const
    {
        const Lines lines = ErrorLines();
        return lines.empty() ? "" : lines.back();
    }

    static KSP_KEY* Record(NCRYPT_KEY_HANDLE key) { return reinterpret_cast<KSP_KEY*>(key); }
    KSP_PROVIDER* ProviderRecord() { return reinterpret_cast<KSP_PROVIDER*>(OpenProvider()); }

    // Takes the provider's machine client away during its lifetime.
    class WithoutClient : private NonCopyable {
      public:
        explicit WithoutClient(KSP_PROVIDER* record) : record_(record) { std::swap(record_->machineKvc, client_); }
        ~WithoutClient() { std::swap(record_->machineKvc, client_); }

      private:
        KSP_PROVIDER* record_;
        KVCClient* client_ = nullptr;
    };

  private:
    Result Transform(decltype(NCRYPT_KEY_STORAGE_FUNCTION_TABLE::Encrypt) operation, NCRYPT_KEY_HANDLE key, Bytes input,
                     DWORD flags, DWORD room);
};
