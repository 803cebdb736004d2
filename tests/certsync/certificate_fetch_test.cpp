// Reading one certificate of the vault.
#include "certsync/certificate_fetch.h"

#include "tests/keyvault/vault_fixture.h"

using nlohmann::json;

namespace {

class CertificateFetchTest : public VaultTest {
  protected:
    // Fetches `name`; what came, and the result in *result.
    Bytes Get(const std::string& name, int* result)
    {
        CertBlob blob = {};
        *result = KVCGetCert(call.get(), Wide(name).c_str(), &blob);
        return blob.der ? Bytes(blob.der.get(), blob.der.get() + blob.size) : Bytes();
    }
};

TEST_F(CertificateFetchTest, TheMembersOfAnAnswer)
{
    const Bytes bytes = {0x30, 0x82, 0xFB, 0xEF};
    const Bytes other = {1, 2, 3};
    const std::string longest(4092, 'A');
    const struct {
        const char* name;
        json answer;
        int result;
        Bytes bytes;
        Strings lines;  // of level 10 that tell where it was found
        std::string error = {};
    } rows[] = {
        {"cer", {{"cer", Base64(bytes)}}, 1, bytes, {"KeyVaultClient::GetCert Found Certificate - cer (exportable)"}},
        {"cer in the other alphabet", {{"cer", Base64Url(bytes)}}, 1, bytes, {}},
        {"value comes first",
         {{"cer", Base64(other)}, {"value", Base64(bytes)}},
         1,
         bytes,
         {"KeyVaultClient::GetCert Found Certificate - value (non-exportable)"}},
        {"a null value is none", {{"cer", Base64(other)}, {"value", nullptr}}, 1, other, {}},
        {"a value that is no Base64 hides cer", {{"cer", Base64(other)}, {"value", "*"}}, 0, {}, {}},
        {"neither", {{"id", "x"}}, 0, {}, {}},
        {"no object", json::array(), 0, {}, {}},
        {"no JSON", "<html>", 0, {}, {}, "KVCGetCert answer is not JSON unexpected character 1"},
        {"cut short", R"({"cer":"AQ)", 0, {}, {}, "KVCGetCert answer is not JSON unexpected end of data 1"},
        {"the longest that the decoder takes", {{"cer", longest}}, 1, Bytes(3069), {}},
        {"a longer one", {{"cer", longest + "AAAA"}}, 0, {}, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        root.ClearLog();
        sim.Fault({{"path", "/certificates/web?"},
                   {"action", "status"},
                   {"status", 200},
                   {"body", row.answer.is_string() ? row.answer.get<std::string>() : row.answer.dump()}});
        int result = -1;
        EXPECT_EQ(row.bytes, Get("web", &result));
        EXPECT_EQ(row.result, result);
        for (const std::string& line : row.lines)
            EXPECT_TRUE(root.Logged(line, 10));
        EXPECT_EQ(row.error.empty() ? Strings{} : Strings{row.error}, LinesUpTo(2));
    }
}

TEST_F(CertificateFetchTest, StatusesAndTheThrottle)
{
    const std::string failure = "KVCGetCert REST Call Error Error ";
    const Strings throttled(5, "KVCGetCert ActionThrottled Error 0x1ad 2");
    const struct {
        const char* name;
        json fault;
        Strings lines;
        size_t waits;
    } rows[] = {
        {"missing", {{"action", "status"}, {"status", 404}}, {failure + "0x194 1"}, 0},
        {"accepted but not read", {{"action", "status"}, {"status", 202}}, {failure + "0xca 1"}, 0},
        {"throttled to the end", {{"action", "status"}, {"status", 429}, {"times", 5}}, throttled, 5},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        json fault = row.fault;
        fault["path"] = "/certificates/web?";
        sim.Fault(fault);
        root.ClearLog();
        clock.ClearWaits();
        int result = -1;
        Get("web", &result);
        EXPECT_EQ(0, result);
        EXPECT_EQ(row.lines, LinesUpTo(2));
        EXPECT_EQ(row.waits, clock.Waits().size());
    }
    // Four refusals and then the certificate.
    Throttle("/certificates/web?", 4);
    Answer("/certificates/web?", 200, {{"cer", "AQID"}});
    int result = -1;
    EXPECT_EQ((Bytes{1, 2, 3}), Get("web", &result));
}

TEST_F(CertificateFetchTest, WithPlainKeysTheCertificateOfAKeyIsNotToBeHad)
{
    sim.AddKey(Simulator::kVault, {{"name", "web"}, {"kty", "EC"}, {"crv", "P-256"}});
    call->certificateMode = 0;
    sim.ClearJournal();
    int result = -1;
    Get("web", &result);
    EXPECT_EQ(0, result);
    EXPECT_EQ(Strings{"GET /keys/web?api-version=2016-10-01"}, sim.VaultRequests());
}

TEST_F(CertificateFetchTest, MissingArgumentsAndMemory)
{
    CertBlob blob = {};
    EXPECT_EQ(0, KVCGetCert(call.get(), nullptr, &blob));
    EXPECT_EQ(0, KVCGetCert(call.get(), TEXT("web"), nullptr));
    EXPECT_EQ(Strings(2, "KVCGetCert Bad CertName or certblob pointer 1"), LinesUpTo(1));

    Answer("/certificates/web?", 200, {{"cer", "AQID"}}, -1);
    int result = -1;
    SweepAllocations(
        [&] {
            blob = {};
            result = KVCGetCert(call.get(), TEXT("web"), &blob);
        },
        [&](bool whole) {
            EXPECT_EQ(result == 1, blob.der != nullptr);
            EXPECT_TRUE(result == 1 || !whole);  // the transport makes good for some failures
        });
}

}  // namespace
