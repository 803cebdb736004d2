// What a server can make of the client's time and memory, and where it ends.
#include "certsync/certificate_listing.h"
#include "keyvault/key_lookup.h"
#include "tests/keyvault/vault_fixture.h"

using nlohmann::json;

namespace {

constexpr size_t kMiB = 1024 * 1024;

using AnswerBounds = ClientTest;

TEST_F(AnswerBounds, AnAnswerEndsAfterTwoMinutesOrSixteenMiB)
{
    const struct {
        const char* story;
        DWORD msPerPiece;
        json fault;
        size_t size;
        DWORD error;
    } rows[] = {
        {"slow", 50, {{"action", "status"}, {"status", 200}}, 2 * kMiB, 0},
        {"too slow", 1000, {{"action", "status"}, {"status", 200}}, 2 * kMiB, ERROR_WINHTTP_TIMEOUT},
        {"byte by byte", 30000, {{"action", "drip"}, {"afterBytes", 1}, {"delayMs", 1}}, 50, ERROR_WINHTTP_TIMEOUT},
        {"late and short", 120000, {{"action", "status"}, {"status", 200}}, 3, ERROR_WINHTTP_TIMEOUT},
        {"too large", 0, {{"action", "status"}, {"status", 200}}, 16 * kMiB + 1, ERROR_FILE_TOO_LARGE},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.story);
        sim.ClearJournal();
        root.ClearLog();
        json fault = row.fault;
        fault["path"] = "/keys";
        fault["body"] = std::string(row.size, 'b');
        sim.Fault(fault);
        clock.StepTicks(row.msPerPiece);
        const KVCResponsePtr response(
            KVCDoWebCall(443, TEXT("contoso-keys.vault.azure.net"), TEXT("/keys"), TEXT("GET"), TEXT(""), nullptr));
        ASSERT_TRUE(response && response->body);
        EXPECT_NE(0u, response->status) << "what came before the end counts";
        EXPECT_NE(nullptr, response->headers);
        EXPECT_EQ(row.error, response->error);
        const size_t size = strlen(response->body);
        EXPECT_TRUE(row.error ? size < row.size : size == row.size) << size;
        EXPECT_TRUE(row.error != ERROR_FILE_TOO_LARGE || size > 15 * kMiB) << size;
        EXPECT_EQ(row.error ? 1u : 0u, LinesWith("KVCDoWebCall WinHttpReadData Error 0x"));
        EXPECT_EQ(1u, sim.Journal().size()) << "an answer isn't asked for again";
    }
    EXPECT_TRUE(clock.Waits().empty());
}

class ListBounds : public VaultTest {
  protected:
    // Of a vault without a name in it. False when the listing failed.
    bool List(const std::string& collection)
    {
        WCHAR** names = nullptr;
        WCHAR** thumbprints = nullptr;
        DWORD keys = 0;
        LONG certificates = 0;
        if (collection == "keys")
            return KVCGetKeys(call.get(), &names, &keys) == 1;
        const bool listed = KVCGetCerts(call.get(), &names, &thumbprints, &certificates) == 1;
        KVCGetCertsFree(names, thumbprints);
        return listed;
    }
};

TEST_F(ListBounds, ALinkToItsOwnPageFailsTheListing)
{
    for (const std::string collection : {"keys", "certificates"}) {
        SCOPED_TRACE(collection);
        sim.ClearJournal();
        root.ClearLog();
        const std::string link = "/" + collection + "?api-version=2016-10-01&$skiptoken=again";
        Answer("/" + collection + "?", 200, {{"value", json::array()}, {"nextLink", "https://v" + link}}, -1);
        EXPECT_FALSE(List(collection));
        EXPECT_EQ(2u, sim.VaultRequests().size());
        const std::string line = collection == "keys" ? "KVCGetKeys" : "KVCGetCerts";
        EXPECT_EQ(Strings{line + " Endless List a link to its own page 1"}, LinesUpTo(1));
    }
}

#ifndef _WIN32  // by the linker name of this system

// Answers of a vault that has no end of pages; 0 leaves the calls to the network.
size_t pagesLeft = 0;
size_t pagesAsked = 0;

TEST_F(ListBounds, AListHasTenThousandPagesAtMost)
{
    for (const std::string collection : {"keys", "certificates"}) {
        for (const size_t pages : {size_t{10000}, size_t{10001}}) {
            SCOPED_TRACE(collection + " " + std::to_string(pages));
            SetLogging(1);
            root.ClearLog();
            pagesAsked = 0;
            pagesLeft = pages;
            EXPECT_EQ(pages == 10000, List(collection));
            pagesLeft = 0;
            EXPECT_EQ(10000u, pagesAsked);
            EXPECT_EQ(pages - 10000, LinesWith(" Endless List more than 10000 pages"));
        }
    }
}

#endif

}  // namespace

#ifndef _WIN32

extern "C" {
KVCResponse* __real__Z12KVCDoWebCalltPKDsS0_S0_S0_PKc(INTERNET_PORT port, const WCHAR* host, const WCHAR* path,
                                                      const WCHAR* verb, const WCHAR* headers, const char* body);
KVCResponse* __wrap__Z12KVCDoWebCalltPKDsS0_S0_S0_PKc(INTERNET_PORT port, const WCHAR* host, const WCHAR* path,
                                                      const WCHAR* verb, const WCHAR* headers, const char* body);

KVCResponse* __wrap__Z12KVCDoWebCalltPKDsS0_S0_S0_PKc(INTERNET_PORT port, const WCHAR* host, const WCHAR* path,
                                                      const WCHAR* verb, const WCHAR* headers, const char* body)
{
    if (pagesLeft == 0)
        return __real__Z12KVCDoWebCalltPKDsS0_S0_S0_PKc(port, host, path, verb, headers, body);
    std::string page = R"({"value":[],"nextLink":null})";
    if (--pagesLeft != 0) {
        const std::string own = Narrow(path);
        page = R"({"value":[],"nextLink":"https://v)" + own.substr(0, own.find('?')) + "?" + std::to_string(pagesLeft) +
               "\"}";
    }
    ++pagesAsked;
    auto* const response = static_cast<KVCResponse*>(calloc(1, sizeof(KVCResponse)));
    response->status = HTTP_OK;
    response->body = strdup(page.c_str());
    return response;
}
}

#endif
