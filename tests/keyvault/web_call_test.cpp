// One exchange: what goes out, what comes back, and what is tried again.
#include <numeric>

#include "tests/keyvault/client_fixture.h"

namespace {

constexpr const WCHAR* kHost = TEXT("contoso-keys.vault.azure.net");
constexpr const WCHAR* kPath = TEXT("/keys/a/sign?api-version=7.0");
constexpr const WCHAR* kHeaders = TEXT("X-First: 1\r\nContent-Type: text/plain\r\nX-Last: 3\r\n\r\n");

KVCResponsePtr Get(const WCHAR* path = TEXT("/keys?api-version=2016-10-01"))
{
    return KVCResponsePtr(KVCDoWebCall(443, kHost, path, TEXT("GET"), TEXT("Accept: application/json\r\n"), nullptr));
}

Waits Times(size_t count, const Waits& waits)
{
    Waits all;
    while (count--)
        all.insert(all.end(), waits.begin(), waits.end());
    return all;
}

using WebCall = ClientTest;

TEST_F(WebCall, RequestGoesOutAsGivenAndTheAnswerComesBackWhole)
{
    sim.Fault({{"path", "/keys/a/sign"},
               {"action", "status"},
               {"status", 418},
               {"headers", {"X-Answer: yes"}},
               {"body", "tea"}});
    const KVCResponsePtr response(KVCDoWebCall(443, kHost, kPath, TEXT("POST"), kHeaders, "{\"a\": 1}"));
    ASSERT_TRUE(response);
    EXPECT_EQ(418u, response->status);
    EXPECT_EQ(0u, response->error);
    EXPECT_STREQ("tea", response->body);
    const std::string head = TextOf(response->headers);
    EXPECT_EQ(0u, head.find("HTTP/1.1 418 "));
    EXPECT_NE(std::string::npos, head.find("\r\nX-Answer: yes\r\n"));

    const auto journal = sim.Journal();
    ASSERT_EQ(1u, journal.size());
    EXPECT_EQ("POST", journal[0]["method"]);
    EXPECT_EQ("contoso-keys.vault.azure.net", journal[0]["host"]);
    EXPECT_EQ("/keys/a/sign?api-version=7.0", journal[0]["target"]);
    EXPECT_EQ((Strings{"X-First: 1", "Content-Type: text/plain", "X-Last: 3"}), CallerLines(journal[0]));
    EXPECT_EQ("Zandrel Key Storage Provider for Key Vault", HeaderOf(journal[0], "User-Agent"));
    EXPECT_EQ("{\"a\": 1}", journal[0]["body"]);

    EXPECT_EQ(Strings{"KVCDoWebCall 8"}, root.LogLines()) << "neither URL nor headers";
    EXPECT_TRUE(clock.Waits().empty());
}

TEST_F(WebCall, WhateverTheServiceSaysIsAnAnswerAndNotRepeated)
{
    for (const int status : {200, 204, 401, 404, 429, 500, 503}) {
        const char* const body = status < 400 ? "" : "no";
        sim.ClearJournal();
        Answer("/keys", status, body);
        const KVCResponsePtr response = Get();
        ASSERT_TRUE(response);
        EXPECT_EQ(static_cast<DWORD>(status), response->status);
        EXPECT_STREQ(body, response->body);
        const auto journal = sim.Journal();
        ASSERT_EQ(1u, journal.size()) << status;
        EXPECT_EQ("", journal[0]["body"]);
        EXPECT_EQ("", HeaderOf(journal[0], "Content-Length"));
    }
    EXPECT_TRUE(clock.Waits().empty());
}

// Transport failures on every attempt: ten of them, each with its waits, and none of them an answer.
struct FailureRow {
    const char* story;
    const char* method;
    const char* control;
    nlohmann::json body;
    DWORD error;
    Waits waits;
    std::string line;
    size_t requests;
};

class WebCallFailure : public WebCall {
  protected:
    void ExpectTenAttempts(const FailureRow& row)
    {
        SCOPED_TRACE(row.story);
        sim.Reset();
        root.ClearLog();
        clock.ClearWaits();
        sim.Control(row.method, row.control, row.body);
        const KVCResponsePtr response = Get();
        ASSERT_TRUE(response);
        EXPECT_EQ(0u, response->status);
        EXPECT_EQ(row.error, response->error);
        EXPECT_EQ(nullptr, response->body);
        EXPECT_EQ(nullptr, response->headers);
        EXPECT_EQ(Times(10, row.waits), clock.Waits());
        EXPECT_EQ(row.requests, sim.Journal().size()) << "nothing may reach a server that isn't trusted";
        Strings lines(11, row.line);
        lines.front() = "KVCDoWebCall 8";
        const std::string code = row.line.substr(row.line.find("Error"));
        lines.insert(lines.begin() + 10, row.line);
        lines.back() = "KVCDoWebCall failure " + code;
        EXPECT_EQ(lines, root.LogLines());
    }
};

TEST_F(WebCallFailure, AServerThatIsDownIsTriedTenTimes)
{
    const std::string line = "KVCDoWebCall WinHttpSendRequest Failed - Sleeping 20 Seconds Error 0x2efd 1";
    ExpectTenAttempts({"", "PUT", "/listener", {{"name", "tls"}, {"mode", "down"}}, 12029, {20000, 200}, line, 0});
}

TEST_F(WebCallFailure, OtherFailuresOfTheTransportAreRepeatedTenTimes)
{
    using Json = nlohmann::json;
    const Json closed = {{"path", "/keys"}, {"action", "reset-before"}, {"times", -1}};
    const Json cut = {{"path", "/keys"}, {"action", "truncate"}, {"inHead", true}, {"afterBytes", 12}, {"times", -1}};
    const std::string noAnswer = "KVCDoWebCall WinHttpReceiveResponse Error 0x2efe 1";
    const std::string noTrust = "KVCDoWebCall WinHttpSendRequest Failed Error 0x2f8f 1";
    const FailureRow rows[] = {
        {"closed before an answer", "POST", "/faults", closed, 12030, {200}, noAnswer, 10},
        {"closed inside the head", "POST", "/faults", cut, 12030, {200}, noAnswer, 10},
        {"another host", "PUT", "/certificate", {{"mode", "wrong-host"}}, 12175, {200}, noTrust, 0},
        {"an unknown root", "PUT", "/certificate", {{"mode", "unknown-root"}}, 12175, {200}, noTrust, 0},
        {"out of date", "PUT", "/certificate", {{"mode", "expired"}}, 12175, {200}, noTrust, 0},
    };
    for (const FailureRow& row : rows)
        ExpectTenAttempts(row);
}

TEST_F(WebCall, AnAttemptThatSucceedsForgetsTheFailuresBefore)
{
    sim.Fault({{"path", "/keys"}, {"action", "reset-before"}, {"times", 3}});
    Answer("/keys", 200, "fine");
    const KVCResponsePtr response = Get();
    ASSERT_TRUE(response);
    EXPECT_EQ(200u, response->status);
    EXPECT_EQ(0u, response->error);
    EXPECT_STREQ("fine", response->body);
    EXPECT_EQ(Times(3, {200}), clock.Waits());
    EXPECT_EQ(0u, LinesWith("KVCDoWebCall failure"));
}

TEST_F(WebCall, AConnectionThatCannotBeMadeUpIsNotRepeated)
{
    const KVCResponsePtr response(KVCDoWebCall(443, TEXT("no such host/"), kPath, TEXT("GET"), TEXT(""), nullptr));
    ASSERT_TRUE(response);
    EXPECT_EQ(0u, response->status);
    EXPECT_NE(0u, response->error);
    EXPECT_TRUE(clock.Waits().empty());
    EXPECT_EQ(1u, LinesWith("KVCDoWebCall WinHttpConnect Failed Error"));
    EXPECT_EQ(1u, LinesWith("KVCDoWebCall failure Error"));
}

TEST_F(WebCall, ABodyCutShortKeepsStatusHeadAndWhatArrived)
{
    for (const char* action : {"truncate", "reset-inside"}) {
        SCOPED_TRACE(action);
        sim.ClearJournal();
        root.ClearLog();
        sim.Fault({{"path", "/keys"}, {"action", action}, {"afterBytes", 9}, {"body", "0123456789abcdef"}});
        const KVCResponsePtr response = Get();
        ASSERT_TRUE(response);
        EXPECT_EQ(401u, response->status);
        EXPECT_EQ(12030u, response->error);
        ASSERT_NE(nullptr, response->body);
        // A reset may throw away what was on its way; an orderly end does not.
        EXPECT_EQ(0u, std::string("012345678").find(response->body)) << response->body;
        EXPECT_TRUE(action == std::string("reset-inside") || response->body == std::string("012345678"));
        EXPECT_NE(nullptr, response->headers);
        EXPECT_EQ(1u, sim.Journal().size()) << "a response was received: no further attempt";
        EXPECT_EQ(0u, LinesWith("KVCDoWebCall failure"));
        EXPECT_EQ(1u, LinesWith("KVCDoWebCall WinHttpQueryDataAvailable Error 0x2efe") +
                          LinesWith("KVCDoWebCall WinHttpReadData Error 0x2efe"));
    }
    EXPECT_TRUE(clock.Waits().empty());
}

TEST_F(WebCall, LargeAndSlowBodiesComeWhole)
{
    std::string large(300000, 'x');
    std::iota(large.begin(), large.begin() + 26, 'a');
    const std::string text = large.substr(0, 200);
    const std::string chunks =
        "HTTP/1.1 200 OK\r\nConnection: close\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n4\r\ndefg\r\n0\r\n\r\n";
    const std::pair<nlohmann::json, std::string> rows[] = {
        {{{"action", "status"}, {"status", 200}, {"body", large}}, large},
        {{{"action", "drip"}, {"afterBytes", 7}, {"delayMs", 1}, {"body", text}}, text},
        {{{"action", "raw"}, {"raw", chunks}}, "abcdefg"},
    };
    for (auto [fault, body] : rows) {
        SCOPED_TRACE(fault["action"]);
        fault["path"] = "/keys";
        sim.Fault(fault);
        const KVCResponsePtr response = Get();
        ASSERT_TRUE(response);
        EXPECT_EQ(body, response->body);
    }
}

// Whichever allocation fails: no record, or a record that tells the truth.
TEST_F(WebCall, WithoutMemoryTheRecordSaysWhatIsMissing)
{
    SetLogging(0);
    bool sawNoRecord = false;
    bool sawNoBody = false;
    bool sawNoHead = false;
    const std::string body(20000, 'b');
    Answer("/keys", 200, body, -1);
    KVCResponsePtr response;
    SweepAllocations([&] { response = Get(); },
                     [&](bool) {
                         sawNoRecord = sawNoRecord || !response;
                         if (!response)
                             return;
                         EXPECT_EQ(200u, response->status);
                         sawNoBody = sawNoBody || !response->body;
                         sawNoHead = sawNoHead || !response->headers;
                         EXPECT_TRUE(response->body || response->error);
                         EXPECT_TRUE(!response->body || body == response->body);
                     });
    EXPECT_TRUE(sawNoRecord && sawNoBody && sawNoHead);
}

}  // namespace
