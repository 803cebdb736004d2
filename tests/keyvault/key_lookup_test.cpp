// Reading one key and one certificate of the vault.
#include "keyvault/key_lookup.h"

#include "certsync/certificate_fetch.h"
#include "tests/keyvault/client_fixture.h"

namespace {

using KeyLookupTest = VaultTest;

TEST_F(KeyLookupTest, AKeyThatMayBeMissingIsNotLoggedAsAnError)
{
    for (const int status : {403, 204}) {
        for (const int mayBeMissing : {0, 1}) {
            Answer("/keys/web01?", status, "");
            root.ClearLog();
            OwnKey key;
            key.n_siz = 7;
            EXPECT_EQ(0, KVCGetKey(call.get(), TEXT("web01"), &key, mayBeMissing));
            EXPECT_EQ(0u, key.n_siz) << "the record is zeroed";
            EXPECT_EQ(static_cast<DWORD>(status), call->lastStatus);
            EXPECT_EQ(mayBeMissing != 0, LinesUpTo(2).empty());
            EXPECT_EQ(mayBeMissing ? 1u : 0u, LinesWith(status == 403 ? "ReadError Error 0x193" : "Error Error 0xcc"));
        }
    }
}

TEST_F(KeyLookupTest, NamesAndAnswersThatAreNotJson)
{
    sim.AddKey(Simulator::kVault, {{"name", kCodedName}, {"kty", "EC"}, {"crv", "P-384"}});
    OwnKey key;
    EXPECT_EQ(0, KVCGetKey(call.get(), TextString(43, 'a').c_str(), &key, 0));
    EXPECT_EQ(0, KVCGetKey(call.get(), nullptr, &key, 0));
    EXPECT_EQ(1, KVCGetKey(call.get(), TEXT("a b"), &key, 0));
    EXPECT_EQ("a b", Narrow(key.clearName));
    EXPECT_EQ(48u, key.y_siz);
    EXPECT_EQ(Strings{"GET /keys/" + kCodedName + "?api-version=2016-10-01"}, sim.VaultRequests());
    for (const auto& [body, fault] :
         {std::pair<const char*, std::string>{"<html>", "character"}, {"{", "end of data"}}) {
        root.ClearLog();
        OwnKey unread;
        Answer("/keys/web01?", 200, body);
        EXPECT_EQ(1, KVCGetKey(call.get(), TEXT("web01"), &unread, 0));
        EXPECT_EQ(nullptr, unread.kty);
        EXPECT_EQ(Strings{"KVCParseJSONKey answer is not JSON unexpected " + fault + " 1"}, LinesUpTo(2));
    }
}

class CertificateFetchTest : public VaultTest {
  protected:
    // Empty when the fetch fails.
    Bytes Get()
    {
        CertBlob blob = {};
        const bool fetched = KVCGetCert(call.get(), TEXT("web"), &blob);
        EXPECT_EQ(fetched, blob.der != nullptr);
        return blob.der ? Bytes(blob.der.get(), blob.der.get() + blob.size) : Bytes();
    }
};

TEST_F(CertificateFetchTest, TheMembersOfAnAnswer)
{
    const Bytes bytes = {0x30, 0x82, 0xFB, 0xEF};
    const std::string longest(4092, 'A');
    const Row<const char*, json, Bytes> rows[] = {
        {"cer", {{"cer", Base64Url(bytes)}}, bytes},
        {"value comes first", {{"cer", "AQID"}, {"value", Base64(bytes)}}, bytes},
        {"a null value", {{"cer", "AQID"}, {"value", nullptr}}, {1, 2, 3}},
        {"a value that isn't Base64 hides cer", {{"cer", "AQID"}, {"value", "*"}}, {}},
        {"neither", {{"id", "x"}}, {}},
        {"not JSON", "<html>", {}},
        {"the longest that is decoded", {{"cer", longest}}, Bytes(3069)},
        {"a longer one", {{"cer", longest + "AAAA"}}, {}},
    };
    for (const auto& [name, answer, expected] : rows) {
        SCOPED_TRACE(name);
        Answer("/certificates/web?", 200, answer);
        EXPECT_EQ(expected, Get());
    }
}

TEST_F(CertificateFetchTest, APlainKeyHasNoCertificate)
{
    sim.AddKey(Simulator::kVault, {{"name", "web"}, {"kty", "EC"}, {"crv", "P-256"}});
    call->certificateMode = 0;
    EXPECT_EQ(Bytes{}, Get());
    CertBlob blob = {};
    EXPECT_FALSE(KVCGetCert(call.get(), nullptr, &blob));
    EXPECT_FALSE(KVCGetCert(call.get(), TEXT("web"), nullptr));
    EXPECT_EQ(Strings{"GET /keys/web?api-version=2016-10-01"}, sim.VaultRequests());
}

}  // namespace
