// What all operations have in common: a failing sign-in, no client, and no memory.
#include <set>

#include "provider/buffer_list.h"
#include "tests/provider/fail_each.h"
#include "tests/provider/import_fixture.h"

namespace {

struct Operation {
    const char* name;
    std::function<SECURITY_STATUS()> run;
    std::set<SECURITY_STATUS> otherFailures = {};  // besides NTE_NO_MEMORY; 0: it can succeed without the memory
    int blocks = 1;                                // how many process heap blocks it needs, at least
    bool signsIn = false;
};

class OperationsTest : public ImportTest {
  protected:
    void SetUp() override
    {
        ImportTest::SetUp();
        sim.Control("PUT", "/deletion", {{"beingDeletedAnswers", 0}});
        AddKey("rsa", "RSA");
        key = OpenKey("rsa");
        cipher = Encrypt(key, Pattern(16), NCRYPT_PAD_OAEP_FLAG).bytes;
        signature = Sign(key, Bytes(32), BCRYPT_PAD_PSS, "SHA256").bytes;
        pending = Pending("RSA");
        AddDoomed();
        sim.ClearJournal();
    }

    // A call that makes a key leaves the handle alone when it fails.
    template <class Call>
    SECURITY_STATUS Make(Call call)
    {
        NCRYPT_KEY_HANDLE handle = 77;
        const SECURITY_STATUS status = armed([&] { return call(&handle); });
        EXPECT_TRUE(status ? handle == 77 : table->FreeKey(provider, handle) == 0);
        return status;
    }
    SECURITY_STATUS Create(const WCHAR* name, DWORD flags = kMachine)
    {
        return Make([&](auto* made) { return table->CreatePersistedKey(provider, made, TEXT("RSA"), name, 0, flags); });
    }
    SECURITY_STATUS Enumerate()
    {
        NCryptKeyName* name = nullptr;
        PVOID state = nullptr;
        const SECURITY_STATUS status =
            armed([&] { return table->EnumKeys(provider, nullptr, &name, &state, kMachine); });
        EXPECT_EQ(status == 0, KelvaroIsRegistered(name, BufferKind::KeyName));
        EXPECT_EQ(status == 0, KelvaroIsRegistered(state, BufferKind::EnumState));
        table->FreeBuffer(name);
        table->FreeBuffer(state);
        return status;
    }
    SECURITY_STATUS ListAlgorithms()
    {
        DWORD count = 77;
        NCryptAlgorithmName* list = nullptr;
        const SECURITY_STATUS status = armed([&] { return table->EnumAlgorithms(provider, 0, &count, &list, 0); });
        EXPECT_TRUE(status ? !list && count == 77 : list && count == 7);
        table->FreeBuffer(list);
        return status;
    }
    // A call that writes 256 bytes writes none when it fails.
    template <class Call>
    SECURITY_STATUS Write(Call call)
    {
        BYTE made[256] = {};
        DWORD size = 0;
        const SECURITY_STATUS status = armed([&] { return call(made, &size); });
        EXPECT_EQ(status != 0, Bytes(256) == Bytes(made, made + 256));
        return status;
    }
    SECURITY_STATUS SignOnce()
    {
        return Write([&](BYTE* made, DWORD* size) {
            return table->SignHash(provider, key, &padding, hash, 32, made, 256, size, BCRYPT_PAD_PSS);
        });
    }
    SECURITY_STATUS VerifyOnce()
    {
        return armed([&] {
            return table->VerifySignature(provider, key, &padding, hash, 32, signature.data(), 256, BCRYPT_PAD_PSS);
        });
    }
    SECURITY_STATUS Transform(decltype(NCRYPT_KEY_STORAGE_FUNCTION_TABLE::Encrypt) transform, Bytes input)
    {
        const DWORD cb = static_cast<DWORD>(input.size());
        return Write([&](BYTE* made, DWORD* size) {
            return transform(provider, key, input.data(), cb, nullptr, made, 256, size, NCRYPT_PAD_OAEP_FLAG);
        });
    }
    SECURITY_STATUS DeleteOnce()
    {
        const SECURITY_STATUS status = armed([&] { return table->DeleteKey(provider, doomed, 0); });
        if (status == 0) {
            Forget(doomed);
            AddDoomed();
        }
        return status;
    }
    void AddDoomed()
    {
        AddKey("doomed", "P-256");
        doomed = Pending("RSA", "doomed", kMachine | NCRYPT_OVERWRITE_KEY_FLAG);
    }
    SECURITY_STATUS FinalizeOnce(bool signsIn)
    {
        const NCRYPT_KEY_HANDLE made = Pending("ECDSA_P256", "made", kMachine | NCRYPT_OVERWRITE_KEY_FLAG);
        if (signsIn)
            ForgetToken();
        const SECURITY_STATUS status = armed([&] { return Finalize(made); });
        EXPECT_EQ(status == 0 ? 1u : 0u, Record(made)->fFinalized);
        FreeKey(made);
        return status;
    }
    // Leaves the client without a token, as before its first sign-in.
    void ForgetToken()
    {
        KVCClient* const client = ProviderRecord()->machineKvc;
        BldStrWipeFree(client->accessToken);
        client->accessToken = nullptr;
        client->tokenExpiry = 0;
        signIns = sim.SignIns();
    }
    // A plaintext secret survives an open that runs out of memory.
    SECURITY_STATUS OpenOnce()
    {
        const std::string set = "secret " + std::to_string(++secrets);
        root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", set);
        NCRYPT_PROV_HANDLE opened = 0;
        const SECURITY_STATUS status = armed([&] { return table->OpenProvider(&opened, TEXT("name"), 0); });
        EXPECT_EQ(status == 0, opened != 0);
        NCRYPT_PROV_HANDLE next = 0;
        EXPECT_EQ(0, table->OpenProvider(&next, TEXT("name"), 0));
        const auto secret = [](NCRYPT_PROV_HANDLE of) {
            const KVCClient* const client = of ? reinterpret_cast<KSP_PROVIDER*>(of)->machineKvc : nullptr;
            return client && client->clientSecret ? Narrow(KVCText(client->clientSecret)) : "none";
        };
        EXPECT_TRUE(secret(opened) == set || secret(opened) == "none") << secret(opened);
        EXPECT_EQ(set, secret(next));
        EXPECT_EQ(0, opened ? table->FreeProvider(opened) : 0);
        EXPECT_EQ(0, table->FreeProvider(next));
        return status;
    }
    // Replaces a property of a key, or of the provider if `of` is 0. keeps: a failure leaves the old value.
    SECURITY_STATUS Replace(NCRYPT_KEY_HANDLE of, const std::string& name, const Bytes& old, DWORD flags, bool keeps)
    {
        Bytes value = old;
        value[value.size() - std::min<size_t>(value.size(), 3)] ^= 1;
        EXPECT_EQ(0, SetKey(of, name, old, flags));
        const TextString wide = Wide(name);
        const DWORD size = static_cast<DWORD>(value.size());
        const SECURITY_STATUS status = armed([&] {
            return of ? table->SetKeyProperty(provider, of, wide.c_str(), value.data(), size, flags)
                      : table->SetProviderProperty(provider, wide.c_str(), value.data(), size, flags);
        });
        const KSP_KEY& record = *Record(pending);
        EXPECT_EQ(status == 0 ? value
                  : keeps     ? old
                              : Bytes(),
                  name == "PRIVATEBLOB" ? KeptBlob(record)
                  : name == "Security Descr"
                      ? Bytes(record.pbSecurityDescr, record.pbSecurityDescr + record.cbSecurityDescr)
                      : GetKey(of, name, flags).bytes);
        return status;
    }

    // Each logs "Kelvaro", its name and the status.
    std::vector<Operation> OfTheVault()
    {
        constexpr SECURITY_STATUS kNotRead = static_cast<SECURITY_STATUS>(0x801B8002);
        const std::set<SECURITY_STATUS> refused = {0, NTE_FAIL, NTE_INVALID_PARAMETER};
        return {
            {"OpenKey Error",
             [this] {
                 return Make([&](auto* made) { return table->OpenKey(provider, made, TEXT("rsa"), 0, kMachine); });
             },
             {0, NTE_NOT_FOUND},
             2},
            {"CreatePersistedKey", [this] { return Create(TEXT("new")); }, {0}, 2},
            {"CreatePersistedKey",  // signs in, but doesn't look for the name
             [this] { return Create(TEXT("rsa"), kMachine | NCRYPT_OVERWRITE_KEY_FLAG); },
             {0}},
            {"EnumKeys", [this] { return Enumerate(); }, {0, kNotRead, NTE_NO_MORE_ITEMS}, 4},
            {"SignHash", [this] { return SignOnce(); }, refused, 0},
            {"VerifySignature", [this] { return VerifyOnce(); }, refused, 0},
            {"Encrypt", [this] { return Transform(table->Encrypt, Pattern(16)); }, refused, 0},
            {"Decrypt", [this] { return Transform(table->Decrypt, cipher); }, refused, 0},
            {"DeleteKey", [this] { return DeleteOnce(); }, {0, NTE_FAIL}, 0},
        };
    }
    // On failure some properties keep their old value and some lose it.
    std::vector<Operation> OfTheProvider()
    {
        const auto replace = [this](auto... arguments) { return [=] { return Replace(arguments...); }; };
        const Bytes text = TextBytes("old"), descriptor = Descriptor() + Pattern(4);
        return {
            {"OpenProvider", [this] { return OpenOnce(); }, {0}},
            {"create", [this] { return Create(nullptr); }},
            {"algorithms", [this] { return ListAlgorithms(); }},
            {"provider's context", replace(NCRYPT_KEY_HANDLE{0}, "Use Context", text, DWORD{0}, false)},
            {"a host's property", replace(pending, "mine", Bytes{1}, kOnly, false)},
            {"key's context", replace(pending, "Use Context", text, DWORD{0}, true)},
            {"descriptor", replace(pending, "Security Descr", descriptor, DWORD{4}, false)},
            {"private blob", replace(pending, "PRIVATEBLOB", RsaBlob(2048), DWORD{0}, true), {NTE_INTERNAL_ERROR}},
            {"blob",
             [this] {
                 Bytes data = RsaBlob(2048);
                 return Make([&](auto* made) {
                     return table->ImportKey(provider, 0, TEXT("RSAPRIVATEBLOB"), nullptr, made, data.data(),
                                             static_cast<DWORD>(data.size()), kLater);
                 });
             },
             {NTE_NOT_SUPPORTED}},
        };
    }
    // Requests of the journal, each once.
    std::set<std::string> Requests()
    {
        std::set<std::string> requests;
        for (const json& request : sim.Journal())
            requests.insert(request.value("method", "") + " " + request.value("target", "") + " " +
                            request.value("body", ""));
        return requests;
    }
    // Each allocation fails, alone and with all later ones.
    void Sweep(const Operation& operation, bool ofTheVault)
    {
        SCOPED_TRACE(operation.name);
        // A block of the heap is one allocation, or two where the heap uses the C library's.
        Armed oneBlock;
        oneBlock([] { return HeapFree(GetProcessHeap(), 0, HeapAlloc(GetProcessHeap(), 0, 8)) ? 0 : 1; });
        sim.ClearJournal();
        EXPECT_EQ(0, operation.run());
        const std::set<std::string> whole = Requests();
        int lost = 0;  // tokens; that isn't a failure of the identity service
        for (const bool allAfter : {false, true}) {
            int own = 0;  // NTE_NO_MEMORY
            const auto judge = [&](SECURITY_STATUS status, size_t failAt) {
                EXPECT_TRUE(status == NTE_NO_MEMORY || operation.otherFailures.count(status))
                    << Hex(status) << " at allocation " << failAt;
                EXPECT_TRUE(!ofTheVault || failAt > 0 || status == NTE_NO_MEMORY) << "the call's record comes first";
                own += status == NTE_NO_MEMORY;
                lost += operation.signsIn && status == NTE_NO_MEMORY && sim.SignIns() > signIns;
            };
            FailEach(&armed, operation.run, judge, allAfter);
            EXPECT_GE(own, operation.blocks * static_cast<int>(oneBlock.seen));
        }
        EXPECT_EQ(operation.signsIn, lost > 0);
        for (const std::string& request : Requests())
            EXPECT_TRUE(whole.count(request)) << "incomplete: " << request;
    }

    Armed armed;  // makes the call of every operation
    NCRYPT_KEY_HANDLE key = 0, pending = 0, doomed = 0;
    Bytes cipher, signature;
    BYTE hash[32] = {};
    BCRYPT_PSS_PADDING_INFO padding = {TEXT("SHA256"), 32};
    int signIns = 0;  // when the token was dropped
    int secrets = 0;
};

TEST_F(OperationsTest, FailWithoutASignInOrAClient)
{
    for (const Operation& operation : OfTheVault()) {
        SCOPED_TRACE(operation.name);
        const std::string line = std::string("Kelvaro") + operation.name + " Error ";
        clock.Advance(3601);
        sim.ClearJournal();
        Answer("/oauth2/token", 401);
        EXPECT_EQ(Hex(SEC_E_LOGON_DENIED), Hex(operation.run()));
        EXPECT_EQ(line + "0x8009030c", LastErrorLine());
        EXPECT_EQ(0u, sim.VaultRequests().size());
        EXPECT_EQ(kDone, Hex(operation.run())) << "the next call signs in again";

        sim.ClearJournal();
        const WithoutClient without(ProviderRecord());
        EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(operation.run()));
        EXPECT_EQ(line + "0x80090027", LastErrorLine());
        EXPECT_EQ(0u, sim.Journal().size());
    }
}

TEST_F(OperationsTest, EveryAllocationMayFail)
{
    SetLogLevel(0);  // the log allocates on some platforms
    for (const Operation& operation : OfTheProvider())
        Sweep(operation, false);
    std::vector<Operation> operations = OfTheVault();
    const std::set<SECURITY_STATUS> refused = {0, NTE_FAIL, NTE_INVALID_PARAMETER, SEC_E_LOGON_DENIED};
    operations.push_back({"FinalizeKey", [this] { return FinalizeOnce(false); }, {0, NTE_FAIL}, 0});
    operations.push_back({"FinalizeKey, signed out", [this] { return FinalizeOnce(true); }, {0, NTE_FAIL}, 0, true});
    operations.push_back({"SignHash, signed out", [this] { return ForgetToken(), SignOnce(); }, refused, 0, true});
    for (const Operation& operation : operations)
        Sweep(operation, true);
}

}  // namespace
