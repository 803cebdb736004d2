// Deletion and purge, of plain keys and of certificates.
#include "keyvault/key_deletion.h"

#include "tests/keyvault/client_fixture.h"

namespace {

class KeyDeletionTest : public VaultTest {
  protected:
    // A vault with the key "mykey" alone, plain or of a certificate, and the client's settings.
    void Begin(bool certificate, bool purge)
    {
        Fresh();
        sim.Control("POST", std::string("/vaults/") + Simulator::kVault + (certificate ? "/certificates" : "/keys"),
                    {{"name", "mykey"}, {"kty", "EC"}, {"crv", "P-256"}});
        call->certificateMode = certificate ? 1 : 0;
        call->purgeOnDelete = purge ? 1 : 0;
    }

    int Delete(const std::string& name = "mykey") { return KVCKeyDelete(call.get(), Wide(name).c_str()); }

    // Deletions, then purges, in the collection of the mode; nothing else may have been sent.
    void ExpectRequests(size_t deletions, size_t purges, const std::string& name = "mykey")
    {
        const std::string rest = (call->certificateMode ? "certificates/" : "keys/") + name + "?api-version=7.0";
        Strings requests(deletions, "DELETE /" + rest);
        requests.resize(deletions + purges, "DELETE /deleted" + rest);
        EXPECT_EQ(requests, sim.VaultRequests());
    }
    // Where the object is: "live", "deleted" or "gone".
    std::string Place()
    {
        const json state = State();
        const bool certificate = call->certificateMode != 0;
        if (!state[certificate ? "certificates" : "keys"].empty())
            return "live";
        return state[certificate ? "deletedCertificates" : "deletedKeys"].empty() ? "gone" : "deleted";
    }
};

TEST_F(KeyDeletionTest, Answers)
{
    using Statuses = std::vector<int>;
    const Statuses conflicts(5, 409);
    const Statuses twenty(20, 429);
    const struct {
        const char* name;
        bool purge;
        Statuses deletions;  // after them, the vault's real answers
        Statuses purges;
        size_t deletionsSent, purgesSent;
        size_t waits;  // over both phases
        int result;
        const char* place;
    } rows[] = {
        {"deleted and purged", true, {}, {}, 1, 1, 0, 1, "gone"},
        {"deleted", false, {}, {}, 1, 0, 0, 1, "deleted"},
        {"204", false, {204}, {}, 1, 0, 0, 1, "live"},
        {"deletion refused", false, {403}, {}, 1, 0, 0, 0, "live"},
        {"other good answers", true, {201}, {202}, 1, 1, 0, 0, "live"},
        {"missing", true, {404}, {404}, 1, 1, 0, 0, "live"},
        {"deleted before", true, {404}, {204}, 1, 1, 0, 1, "live"},
        {"purge refused", true, {}, {403}, 1, 1, 0, 1, "deleted"},
        {"conflicts, with longer waits in the purge", true, {409, 409}, {409}, 3, 2, 3, 1, "gone"},
        {"a purge in conflict to the end", true, {}, conflicts, 1, 5, 5, 1, "deleted"},
        {"a deletion in conflict to the end", false, conflicts, {}, 5, 0, 5, 0, "live"},
        {"both in conflict to the end", true, conflicts, {409}, 5, 1, 5, 0, "live"},
        {"five conflicts over both phases", true, {409, 409, 409}, {409, 409}, 4, 2, 5, 1, "deleted"},
        {"throttled for long", true, {429, 429, 429, 429, 429, 429}, {429, 429}, 7, 3, 8, 1, "gone"},
        {"a conflict after much throttling", false, {429, 429, 429, 429, 429, 409}, {}, 6, 0, 5, 0, "live"},
        {"throttled to the end", false, twenty, {}, 20, 0, 20, 0, "live"},
        {"a purge throttled to the end", true, {}, twenty, 1, 20, 20, 1, "deleted"},
    };
    for (const bool certificate : {false, true}) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(certificate ? "certificate: " : "key: ") + row.name);
            Begin(certificate, row.purge);
            for (const int status : row.deletions)
                Answer(certificate ? "/certificates/mykey?" : "/keys/mykey?", status, "");
            for (const int status : row.purges)
                Answer("/deleted", status, "");
            EXPECT_EQ(row.result, Delete());
            ExpectRequests(row.deletionsSent, row.purgesSent);
            EXPECT_EQ(RetryWaits(row.waits), clock.Waits());
            EXPECT_EQ(row.place, Place());
            EXPECT_EQ(0u, LinesWith("Failed Error 0x199") + LinesWith("Failed Error 0x1ad")) << "logged as busy";
        }
    }
}

TEST_F(KeyDeletionTest, NamesAndBadArguments)
{
    Begin(false, true);
    EXPECT_EQ(0, Delete("a b"));
    ExpectRequests(1, 1, kCodedName);
    sim.ClearJournal();
    EXPECT_EQ(0, Delete(std::string(43, 'n')));
    EXPECT_EQ(0, KVCKeyDelete(call.get(), nullptr));
    EXPECT_EQ(0, KVCKeyDelete(nullptr, TEXT("mykey")));
    // Without a token, after another operation has succeeded.
    call.reset(KVCBeginCall(client.get()));
    call->lastStatus = 200;
    EXPECT_EQ(0, Delete());
    EXPECT_EQ(Strings{}, sim.VaultRequests());
}

TEST_F(KeyDeletionTest, WithoutMemoryADeletionFailsOrStopsBeforeThePurge)
{
    SetLogging(0);
    int result = 0;
    Begin(false, true);
    SweepAllocations([&] { result = Delete(); },
                     [&](bool whole) {
                         EXPECT_EQ(result == 0, Place() == "live");
                         EXPECT_TRUE(!whole || Place() == "gone");
                         Begin(false, true);
                     });
}

}  // namespace
