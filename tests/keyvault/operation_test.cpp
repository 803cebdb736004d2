// What all operations but deletions and listings have in common: how often each is sent while the vault is busy, other
// failures, and failing allocations.
#include <functional>

#include "certsync/certificate_fetch.h"
#include "keyvault/certificate_merge.h"
#include "keyvault/crypto_op.h"
#include "keyvault/key_creation.h"
#include "keyvault/key_lookup.h"
#include "tests/keyvault/client_fixture.h"

namespace {

const TextString kGrowingName(42, '"');  // every character is escaped

class VaultOperation : public VaultTest {
  protected:
    struct Operation {
        const char* name;
        DWORD certificateMode;
        const char* path;  // of its request
        int good;
        json body;
        std::function<bool(KVC*)> run;
    };

    static bool Sign(KVC* kvc)
    {
        static const BYTE input[512] = {};  // its text doesn't fit into the first block
        BYTE room[8];
        DWORD size = sizeof(room);
        return KVCCryptoOp(kvc, TEXT("sign"), TEXT("web"), TEXT("v"), 0, TEXT("RS256"), input, 512, room, &size) == 0;
    }
    static bool Read(KVC* kvc)
    {
        OwnKey key;
        const bool read = KVCGetKey(kvc, TEXT("web"), &key, 0) == 1;
        for (const auto& [number, size] :
             {std::pair(key.n, key.n_siz), {key.e, key.e_siz}, {key.x, key.x_siz}, {key.y, key.y_siz}})
            EXPECT_EQ(number == nullptr, size == 0);
        return read;
    }
    static bool FetchCertificate(KVC* kvc)
    {
        CertBlob blob = {};
        const bool fetched = KVCGetCert(kvc, TEXT("web"), &blob);
        EXPECT_EQ(fetched, blob.der != nullptr);
        return fetched;
    }
    static bool Create(KVC* kvc)
    {
        OwnKey key;
        return KVCCreateKey(kvc, kGrowingName.c_str(), TEXT("RSA"), 2048, &key, 0) == 1;
    }
    static bool Merge(KVC* kvc)
    {
        KVCImportCertificate(kvc, TEXT("web"), reinterpret_cast<const BYTE*>("abc"), 3);
        return kvc->lastStatus == 201;
    }

    const Operation kOperations[6] = {
        {"signing", 0, "/sign?", 200, {{"value", "AQID"}}, Sign},
        {"reading an RSA key", 0, "/keys/web?", 200, ReadServiceSample("rsa-get"), Read},
        {"reading a curve key", 0, "/keys/web?", 200, ReadServiceSample("ec-p256-create"), Read},
        {"reading a certificate", 1, "/certificates/web?", 200, {{"cer", "AQID"}}, FetchCertificate},
        {"creating a key", 0, "/create?", 200, json::object(), Create},
        {"merging a certificate", 1, "/merge?", 201, json::object(), Merge},
    };
};

TEST_F(VaultOperation, IsSentFiveTimesAtMost)
{
    for (const Operation& operation : kOperations) {
        SCOPED_TRACE(operation.name);
        call->certificateMode = operation.certificateMode;
        for (const size_t throttled : {0, 1, 4, 5}) {
            SCOPED_TRACE(throttled);
            sim.Control("DELETE", "/faults");
            sim.ClearJournal();
            clock.ClearWaits();
            root.ClearLog();
            if (throttled)
                Answer(operation.path, 429, ReadServiceSample("error-429-throttled"), static_cast<int>(throttled));
            Answer(operation.path, operation.good, operation.body);
            EXPECT_EQ(throttled < 5, operation.run(call.get()));
            EXPECT_EQ(RetryWaits(throttled), clock.Waits());
            const std::vector<json> requests = Requests(operation.path);
            EXPECT_EQ(throttled < 5 ? throttled + 1 : 5, requests.size());
            EXPECT_EQ(requests.size(), sim.Journal().size());
            for (const json& request : requests)
                EXPECT_EQ(requests[0]["body"], request["body"]);
        }
    }
}

TEST_F(VaultOperation, FailsAtOnceForOtherReasons)
{
    for (const Operation& operation : kOperations) {
        SCOPED_TRACE(operation.name);
        call->certificateMode = operation.certificateMode;
        for (const int status : {202, 500}) {
            sim.Control("DELETE", "/faults");
            Answer(operation.path, status, "");
            EXPECT_FALSE(operation.run(call.get())) << status;
        }
        SetNetwork(false);
        EXPECT_FALSE(operation.run(call.get()));
        EXPECT_EQ(0u, call->lastStatus);
        SetNetwork(true);
        // If a request can't be sent, an earlier operation's status doesn't count as its answer.
        KVCCall unsent(KVCBeginCall(client.get()));
        unsent->lastStatus = 429;
        clock.ClearWaits();
        EXPECT_FALSE(operation.run(unsent.get()));
        EXPECT_EQ(0u, unsent->lastStatus);
        EXPECT_TRUE(clock.Waits().empty());
    }
}

TEST_F(VaultOperation, WithoutMemoryNothingIncompleteIsSent)
{
    SetLogging(0);
    for (const Operation& operation : kOperations) {
        SCOPED_TRACE(operation.name);
        call->certificateMode = operation.certificateMode;
        sim.ClearJournal();
        sim.Control("DELETE", "/faults");
        Answer(operation.path, operation.good, operation.body, -1);
        bool good = false;
        SweepAllocations([&] { good = operation.run(call.get()); },
                         [&](bool whole) {
                             EXPECT_TRUE(good || !whole);
                             EXPECT_EQ(1, ListKeys(call.get())) << "the next operation works";
                         });
        EXPECT_LE(Posts().size(), 1u) << json(Posts());
    }
}

}  // namespace
