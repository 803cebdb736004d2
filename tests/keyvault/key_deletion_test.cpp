// Deletion and purge, of plain keys and of certificates.
#include "keyvault/key_deletion.h"

#include <iterator>
#include <sstream>

#include "tests/keyvault/vault_fixture.h"

using nlohmann::json;

namespace {

std::vector<int> Numbers(const std::string& words)
{
    std::istringstream stream(words);
    return std::vector<int>(std::istream_iterator<int>(stream), {});
}

class KeyDeletionTest : public VaultTest {
  protected:
    // An empty vault with the key "mykey", plain or of a certificate, and the client's settings.
    void Begin(bool certificate, bool purge)
    {
        sim.Reset();
        sim.Control("PUT", "/deletion", {{"beingDeletedAnswers", 0}});
        sim.Control("POST", std::string("/vaults/") + Simulator::kVault + (certificate ? "/certificates" : "/keys"),
                    {{"name", "mykey"}, {"kty", "EC"}, {"crv", "P-256"}});
        // Deletion does not clear it, and each entry point has a record of its own.
        call->lastStatus = 0;
        call->certificateMode = certificate ? 1 : 0;
        call->purgeOnDelete = purge ? 1 : 0;
        clock.ClearWaits();
        root.ClearLog();
    }
    void TearDown() override
    {
        sim.Control("PUT", "/deletion", {{"beingDeletedAnswers", 0}});
        VaultTest::TearDown();
    }

    void AnswerAll(const std::string& path, const std::string& statuses)
    {
        for (const int status : Numbers(statuses))
            Answer(path, status, "");
    }
    int Delete(const std::string& name = "mykey") { return KVCKeyDelete(call.get(), Wide(name).c_str()); }

    // All requests, D for a deletion and P for a purge in the collection of the mode; anything else in full.
    std::string Requests()
    {
        const std::string collection = call->certificateMode ? "certificates" : "keys";
        std::string letters;
        for (const std::string& line : sim.VaultRequests()) {
            if (line == "DELETE /" + collection + "/mykey?api-version=7.0")
                letters += "D";
            else if (line == "DELETE /deleted" + collection + "/mykey?api-version=7.0")
                letters += "P";
            else
                letters += "[" + line + "]";
        }
        for (const std::string& body : Bodies())
            letters += body;
        return letters;
    }
    // Where the object is: "live", "deleted" or "gone".
    std::string Place()
    {
        const json state = sim.Control("GET", std::string("/vaults/") + Simulator::kVault);
        const bool certificate = call->certificateMode != 0;
        if (!state[certificate ? "certificates" : "keys"].empty())
            return "live";
        return state[certificate ? "deletedCertificates" : "deletedKeys"].empty() ? "gone" : "deleted";
    }
};

// The lines of a phase that got these answers, in the words of a function.
Strings PhaseLines(const std::string& words, const std::string& answers)
{
    Strings lines;
    for (const int status : Numbers(answers)) {
        std::ostringstream line;
        line << words << (status == 409 || status == 429 ? " Failed - Throttled or Conflict - Retry" : " Failed")
             << " Error 0x" << std::hex << status << " 1";
        if (status >= 400)
            lines.push_back(line.str());
    }
    return lines;
}

TEST_F(KeyDeletionTest, AnswersOfEveryKind)
{
    const std::string five = "409 409 409 409 409";
    std::string twenty;
    for (int i = 0; i < 20; ++i)
        twenty += "429 ";
    const struct {
        const char* name;
        bool purge;
        std::string deletions;  // then the vault answers for itself
        std::string purges;
        std::string requests;
        size_t waits;  // 1, 2, 4 and so on up to 64 s
        int result;
        const char* place;
    } rows[] = {
        {"deleted and purged", true, "", "", "DP", 0, 1, "gone"},
        {"deleted", false, "", "", "D", 0, 1, "deleted"},
        {"204", false, "204", "", "D", 0, 1, "live"},
        {"deletion refused", false, "403", "", "D", 0, 0, "live"},
        {"good answers that say nothing", true, "201", "202", "DP", 0, 0, "live"},
        {"not there, nor deleted", true, "404", "404", "DP", 0, 0, "live"},
        {"deleted before", true, "404", "204", "DP", 0, 1, "live"},
        {"purge refused", true, "", "403", "DP", 0, 1, "deleted"},
        {"a server error", true, "500", "500", "DP", 0, 0, "live"},
        {"conflicts, and a purge that goes on waiting", true, "409 409", "409", "DDDPP", 3, 1, "gone"},
        {"a purge in conflict to the end", true, "", five, "DPPPPP", 5, 1, "deleted"},
        {"a deletion in conflict to the end", false, five, "", "DDDDD", 5, 0, "live"},
        {"both in conflict to the end", true, five, "409", "DDDDDP", 5, 0, "live"},
        {"five conflicts over both phases", true, "409 409 409", "409 409", "DDDDPP", 5, 1, "deleted"},
        {"throttled for long", true, "429 429 429 429 429 429", "429 429", "DDDDDDDPPP", 8, 1, "gone"},
        {"a conflict after much throttling", false, "429 429 429 429 429 409", "", "DDDDDD", 5, 0, "live"},
        {"throttled to the end", false, twenty, "", std::string(20, 'D'), 20, 0, "live"},
        {"a purge throttled to the end", true, "", twenty, "D" + std::string(20, 'P'), 20, 1, "deleted"},
    };
    Waits longWaits = {1000, 2000, 4000, 8000, 16000, 32000};
    longWaits.resize(20, 64000);
    for (const bool certificate : {false, true}) {
        const std::string words = certificate ? "KVCLowLevelDeleteKeyCertificate" : "KVCLowLevelDeleteKey";
        for (const auto& row : rows) {
            SCOPED_TRACE(words + ": " + row.name);
            Begin(certificate, row.purge);
            AnswerAll(certificate ? "/certificates/mykey?" : "/keys/mykey?", row.deletions);
            AnswerAll("/deleted", row.purges);
            EXPECT_EQ(row.result, Delete());
            EXPECT_EQ(row.requests, Requests());
            EXPECT_EQ(Waits(longWaits.begin(), longWaits.begin() + static_cast<std::ptrdiff_t>(row.waits)),
                      clock.Waits());
            Strings lines = PhaseLines(words, row.deletions);
            for (const std::string& line : PhaseLines(words + " PURGE", row.purges))
                lines.push_back(line);
            EXPECT_EQ(lines, LinesUpTo(2));
            EXPECT_EQ(row.place, Place());
        }
    }
}

TEST_F(KeyDeletionTest, APurgeWaitsUntilTheVaultHasDeleted)
{
    for (const bool certificate : {false, true}) {
        Begin(certificate, true);
        sim.Control("PUT", "/deletion", {{"beingDeletedAnswers", 2}});
        EXPECT_EQ(1, Delete());
        EXPECT_EQ("DPPP", Requests());
        EXPECT_EQ((Waits{1000, 2000}), clock.Waits());
        EXPECT_EQ("gone", Place());
    }
}

TEST_F(KeyDeletionTest, ASecondDeletionPurgesWhatTheFirstLeft)
{
    Begin(true, false);
    EXPECT_EQ(1, Delete());
    EXPECT_EQ("deleted", Place());
    EXPECT_EQ(0, Delete()) << "it is there no more";
    call->purgeOnDelete = 1;
    EXPECT_EQ(1, Delete());
    EXPECT_EQ("DDDP", Requests());
    EXPECT_EQ("gone", Place());
}

TEST_F(KeyDeletionTest, BothTargetsHaveTheEncodedName)
{
    const std::string coded = "-vBAgAAwBA" + std::string(33, 'z');
    Begin(false, true);
    EXPECT_EQ(0, Delete("a b"));
    EXPECT_EQ(
        (Strings{"DELETE /keys/" + coded + "?api-version=7.0", "DELETE /deletedkeys/" + coded + "?api-version=7.0"}),
        sim.VaultRequests());
}

TEST_F(KeyDeletionTest, WhatCannotBeAskedSendsNothing)
{
    Begin(true, true);
    EXPECT_EQ(0, Delete(std::string(43, 'n')));
    EXPECT_EQ(0, KVCKeyDelete(call.get(), nullptr));
    EXPECT_EQ(0, KVCKeyDelete(nullptr, TEXT("mykey")));
    EXPECT_EQ(Strings(2, "KVCKeyDelete NULL Parameter 1"), LinesUpTo(2));
    // Without a token, and with the good answer of another operation still there.
    call.reset(KVCBeginCall(client.get()));
    call->lastStatus = 200;
    EXPECT_EQ(0, Delete());
    EXPECT_EQ(Strings{}, sim.VaultRequests());

    Begin(true, true);
    sim.Control("PUT", "/listener", {{"name", "tls"}, {"mode", "down"}});
    EXPECT_EQ(0, Delete());
    EXPECT_TRUE(root.Logged("KVCLowLevelDeleteKeyCertificate Failed Error 0x0", 1));
    EXPECT_TRUE(root.Logged("KVCLowLevelDeleteKeyCertificate PURGE Failed Error 0x0", 1));
}

TEST_F(KeyDeletionTest, WithoutMemoryADeletionFailsOrStopsBeforeThePurge)
{
    SetLogging(0);
    int result = 0;
    SweepAllocations(
        [&] {
            Begin(false, true);
            result = Delete();
        },
        [&](bool whole) {
            EXPECT_EQ(result == 0, Place() == "live");
            EXPECT_TRUE(!whole || Place() == "gone");
        });
}

}  // namespace
