// Answers as the live service sent them, all the way to the host.
#include "tests/provider/key_fixture.h"

namespace {

using nlohmann::json;
using Lines = std::vector<std::string>;

class ServiceSampleTest : public KeyTest {
  protected:
    void Answer(const std::string& path, int status, const std::string& body, int times = 1)
    {
        sim.Fault({{"path", path}, {"action", "status"}, {"status", status}, {"body", body}, {"times", times}});
    }
    // Lines of the levels 1 and 2, each with its level.
    Lines Troubles() const
    {
        Lines lines;
        for (const std::string& line : root.LogLines()) {
            const std::string level = line.substr(line.size() - 2);
            if (level == " 1" || level == " 2")
                lines.push_back(line);
        }
        return lines;
    }
};

json Sample(const std::string& name)
{
    return json::parse(ReadServiceSample(name));
}

// The key of one row of the signature vectors, in the form of a read.
json VectorKey(size_t index)
{
    json answer = {{"key", Sample("signature-vectors")[index]["key"]}};
    answer["key"]["kid"] = "https://vaultname.vault.azure.net/keys/vector/0123456789abcdef0123456789abcdef";
    return answer;
}

std::string NameOf(const json& answer)
{
    const std::string kid = answer["key"]["kid"];
    const size_t begin = kid.find("/keys/") + 6;
    return kid.substr(begin, kid.rfind('/') - begin);
}

TEST_F(ServiceSampleTest, KeysOpenAndExport)
{
    json zeroModulus = Sample("rsa-get");
    const KVKey& rsa = Record(OpenAnswered(zeroModulus))->kvk;
    zeroModulus["key"]["n"] = Base64Url(Bytes{0} + Bytes(rsa.n, rsa.n + rsa.n_siz));

    const std::string rsaTail = std::string("\x03\0\0\0\x01\x01\0\0\0\0\0\0\0\0\0\0\x01\0\x01\0", 20);
    const struct {
        const char* name;
        json answer;
        const char* algName;
        const char* blobType;
        std::string head;  // of the blob; empty when it is refused
        size_t size;
    } rows[] = {
        {"P-256", Sample("ec-p256-create"), "ECDH_P256", "ECCPUBLICBLOB", {"ECS1\x20\0\0\0", 8}, 8 + 2 * 32},
        {"P-384", Sample("ec-p384-create"), "ECDH_P384", "ECCPUBLICBLOB", {"ECS3\x30\0\0\0", 8}, 8 + 2 * 48},
        {"P-521", Sample("ec-p521-create"), "ECDH_P521", "ECCPUBLICBLOB", {"ECS5\x42\0\0\0", 8}, 8 + 2 * 66},
        {"P-256K", Sample("ec-p256k-create"), "", "ECCPUBLICBLOB", {"\0\0\0\0\x20\0\0\0", 8}, 8 + 2 * 32},
        {"zero before both coordinates", VectorKey(4), "ECDH_P384", "ECCPUBLICBLOB", {"ECS3\x31\0\0\0", 8}, 8 + 2 * 49},
        {"zero before one coordinate", VectorKey(3), "", "ECCPUBLICBLOB", "", 0},
        {"RSA", Sample("rsa-get"), "RSA", "RSAPUBLICBLOB", "RSA1" + std::string("\0\x08\0\0", 4) + rsaTail, 284},
        {"RSA with a zero", zeroModulus, "RSA", "RSAPUBLICBLOB", "RSA1" + std::string("\x08\x08\0\0", 4) + rsaTail,
         284},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        root.ClearLog();
        Answer("/keys/" + NameOf(row.answer) + "?", 200, row.answer.dump());
        const NCRYPT_KEY_HANDLE key = OpenKey(NameOf(row.answer));
        ASSERT_NE(0u, key);
        EXPECT_EQ(row.algName, Narrow(Record(key)->pszAlgName));
        const Result blob = Export(key, row.blobType);
        EXPECT_EQ(Hex(row.size ? 0 : NTE_INVALID_PARAMETER), Hex(blob.status));
        EXPECT_EQ(row.size, blob.bytes.size());
        const std::string text(blob.bytes.begin(), blob.bytes.end());
        EXPECT_EQ(row.head, text.substr(0, row.head.size()));
        const Lines refused = {"KelvaroExportKey ECC x_siz != y_siz 1", "KelvaroExportKey Failed Error 0x80090027 1"};
        EXPECT_EQ(row.size ? Lines{} : refused, Troubles());
    }
}

TEST_F(ServiceSampleTest, KeysAreListedAcrossThePages)
{
    json page = {{"value", json::array()},
                 {"nextLink", "https://vaultname.vault.azure.net:443/keys?api-version=2016-10-01&$skiptoken=eyJOZXh0"}};
    Lines expected;
    std::vector<json> keys;
    for (const char* sample : {"ec-p256-create", "ec-p256k-create", "ec-p384-create", "ec-p521-create", "rsa-get"}) {
        keys.push_back(Sample(sample));
        const std::string kid = keys.back()["key"]["kid"];
        page["value"].push_back({{"kid", kid.substr(0, kid.rfind('/'))}, {"attributes", keys.back()["attributes"]}});
        expected.push_back(NameOf(keys.back()) + " ");  // none has tags, and so none an algorithm
    }
    Answer("/keys?", 200, page.dump());
    Answer("$skiptoken=eyJOZXh0", 200, ReadServiceSample("certificate-list-pending"));  // items without a "kid"
    for (const json& key : keys)
        Answer("/keys/" + NameOf(key) + "?", 200, key.dump());
    PVOID state = nullptr;
    Lines found;
    Found next = Next(&state);
    for (; next.status == 0; next = Next(&state))
        found.push_back(next.name + " " + next.algId);
    EXPECT_EQ(Hex(NTE_NO_MORE_ITEMS), Hex(next.status));
    EXPECT_EQ(expected, found);
    EXPECT_EQ(0, table->FreeBuffer(state));

    Answer("/keys?", 200, ReadServiceSample("certificate-list-pending"));
    state = nullptr;
    EXPECT_EQ(Hex(NTE_NO_MORE_ITEMS), Hex(Next(&state).status));
    EXPECT_EQ(nullptr, state);
    EXPECT_EQ(Lines{}, Troubles());
}

TEST_F(ServiceSampleTest, RefusalsOfTheVault)
{
    AddRsaKey("web");
    const NCRYPT_KEY_HANDLE key = OpenKey("web");
    Padding padding(BCRYPT_PAD_PKCS1, "SHA256");
    const struct {
        const char* sample;
        int status;
        const char* hex;
    } rows[] = {
        {"error-401-no-token-2021-03", 401, "0x191"},
        {"error-401-no-token", 401, "0x191"},
        {"error-403-key-operation-forbidden", 403, "0x193"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.sample);
        const std::string hex = row.hex;
        Answer("/keys", row.status, ReadServiceSample(row.sample), 3);
        root.ClearLog();
        NCRYPT_KEY_HANDLE opened = 0;
        EXPECT_EQ(Hex(NTE_NOT_FOUND), Hex(table->OpenKey(provider, &opened, TEXT("web"), 0, NCRYPT_MACHINE_KEY_FLAG)));
        PVOID state = nullptr;
        EXPECT_EQ("0x801b8002", Hex(Next(&state).status));
        EXPECT_EQ(Hex(NTE_FAIL), Hex(Sign(key, padding.info(), Pattern(32), BCRYPT_PAD_PKCS1).status));
        EXPECT_EQ(
            (Lines{"KelvaroOpenKey Error Error 0x80090011 1", "KVCGetKeys REST Call Error Error " + hex + " 1",
                   "KVCGetKeys REST Call Error Error " + hex + " 1", "KelvaroEnumKeys Error 0x801b8002 1",
                   "KVCCryptoOp KVCDoKVRESTCall Error Error " + hex + " 1", "KelvaroSignHash Error 0x80090020 1"}),
            Troubles());
    }
}

}  // namespace
