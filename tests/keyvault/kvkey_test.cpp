#include "keyvault/kvkey.h"

#include <cstring>
#include <optional>

#include "tests/keyvault/vault_fixture.h"

using nlohmann::json;

namespace {

constexpr char kKid[] = "https://contoso-keys.vault.azure.net/keys/web01/0123456789abcdef0123456789abcdef";

// A record parsed from an answer; what stood in it before must not show.
struct Parsed {
    explicit Parsed(const std::string& body, const std::string& name = "web01")
    {
        memset(&key, 0xA5, sizeof(key));
        result = KVCParseJSONKey(Wide(name).c_str(), body.c_str(), &key);
    }
    ~Parsed() { KVCFreeKVKey(&key); }
    Parsed(const Parsed&) = delete;
    Parsed& operator=(const Parsed&) = delete;

    std::string AlgID() const { return Narrow(key.AlgID); }

    KVKey key;
    int result;
};

std::string Text(const BYTE* bytes, DWORD size)
{
    return bytes ? Base64Url(Bytes(bytes, bytes + size)) : "(NULL)";
}

void ExpectEmpty(const KVKey& key)
{
    for (const WCHAR* text : {key.crv, key.d, key.dp, key.dq, key.k, key.kty, key.p, key.q, key.qi, key.key_ops})
        EXPECT_EQ("(NULL)", OrNone(text));
    for (const BYTE* bytes : {key.e, key.n, key.x, key.y})
        EXPECT_EQ(nullptr, bytes);
    EXPECT_EQ(0u, key.e_siz + key.n_siz + key.x_siz + key.y_siz);
    EXPECT_EQ(0, key.isEC);
    EXPECT_EQ("", Narrow(key.AlgID));
    EXPECT_EQ("", Narrow(key.version));
}

struct SampleRow {
    const char* file;
    LONG isEC;
    const char* ops;
    DWORD modulusSize;
    DWORD pointSize;
};

TEST(KVKeyTest, BodiesOfTheLiveService)
{
    const SampleRow rows[] = {
        {"rsa-get", 0, "encrypt,decrypt,sign,verify,wrapKey,unwrapKey", 256, 0},
        {"ec-p256-create", 1, "sign,verify", 0, 32},
        {"ec-p256k-create", 1, "sign,verify", 0, 32},
        {"ec-p384-create", 1, "sign,verify", 0, 48},
        {"ec-p521-create", 1, "sign,verify", 0, 66},
    };
    for (const SampleRow& row : rows) {
        SCOPED_TRACE(row.file);
        const std::string body = ReadServiceSample(row.file);
        const json sent = json::parse(body)["key"];
        const Parsed parsed(body);
        const KVKey& key = parsed.key;
        EXPECT_EQ(1, parsed.result);
        EXPECT_EQ(1u, key.valid);
        EXPECT_EQ("web01", Narrow(key.keyName));
        EXPECT_EQ("web01", Narrow(key.clearName));
        EXPECT_EQ(32u, Narrow(key.version).size());
        EXPECT_TRUE(sent["kid"].get<std::string>().find("/" + Narrow(key.version)) != std::string::npos);
        EXPECT_EQ(row.isEC, key.isEC);
        EXPECT_EQ(sent["kty"].get<std::string>(), OrNone(key.kty));
        EXPECT_EQ(sent.value("crv", "(NULL)"), OrNone(key.crv));
        EXPECT_EQ(row.ops, OrNone(key.key_ops));
        EXPECT_EQ(sent.value("n", "(NULL)"), Text(key.n, key.n_siz));
        EXPECT_EQ(sent.value("e", "(NULL)"), Text(key.e, key.e_siz));
        EXPECT_EQ(sent.value("x", "(NULL)"), Text(key.x, key.x_siz));
        EXPECT_EQ(sent.value("y", "(NULL)"), Text(key.y, key.y_siz));
        EXPECT_EQ(row.modulusSize, key.n_siz);
        EXPECT_EQ(row.pointSize, key.x_siz);
        EXPECT_EQ("", parsed.AlgID()) << "none of them has tags";
    }
}

struct AlgIDRow {
    const char* name;
    const char* kty;
    const char* crv;  // NULL: no member
    const char* ops;  // one operation
    json tags;        // null: no member
    const char* algID;
};

TEST(KVKeyTest, AlgIDFollowsTagsCurveAndOperations)
{
    const json none = json::object();
    const auto tag = [](const char* text) { return json{{"AlgID", text}}; };
    const AlgIDRow rows[] = {
        {"RSA, any tag", "RSA", nullptr, "sign", tag("ECDSA_P256"), "RSA"},
        {"RSA, no tags", "RSA", nullptr, "sign", nullptr, ""},
        {"tags of another type", "RSA", nullptr, "sign", "AlgID", ""},
        {"type in another case is no curve", "ec", "P-256", "sign", none, "RSA"},
        {"ECDH tag, the curve wins", "EC", "P-384", "sign", tag("ECDH_P256"), "ECDH_P384"},
        {"ECDH anywhere in the tag", "EC-HSM", "P-521", "sign", tag("myECDHkey"), "ECDH_P521"},
        {"ECDSA tag", "EC", "P-256", "decrypt", tag("ECDSA_P384"), "ECDSA_P256"},
        {"another tag means ECDSA", "EC", "P-521", "decrypt", tag("x"), "ECDSA_P521"},
        {"tag of 19 characters", "EC", "P-256", "sign", tag("ECDH_89012345678901"), "ECDH_P256"},
        {"tag of 20 characters counts as empty", "EC", "P-256", "sign", tag("ECDH_890123456789012"), "ECDSA_P256"},
        {"unknown curve keeps the tag", "EC", "P-192", "sign", tag("ECDH_P192"), "ECDH_P192"},
        {"the numbers are tested in order", "EC", "521-384", "sign", tag("ECDH"), "ECDH_P384"},
        {"a tag of null is none", "EC", "P-256", "sign", {{"AlgID", nullptr}}, "ECDSA_P256"},
        {"no tag, signing", "EC", "P-384", "sign", none, "ECDSA_P384"},
        {"no tag, signing, curve holds the number", "EC", "P-256K", "sign", none, "ECDSA_P256"},
        {"no tag, not signing", "EC", "P-521", "deriveKey", none, "ECDH_P521"},
        {"no tag, not signing, curve not exact", "EC", "P-256K", "deriveKey", none, ""},
        {"no tag, signing, unknown curve", "EC", "P-192", "sign", none, ""},
    };
    for (const AlgIDRow& row : rows) {
        SCOPED_TRACE(row.name);
        json body = {{"key", {{"kid", kKid}, {"kty", row.kty}, {"key_ops", {row.ops}}}}};
        if (row.crv)
            body["key"]["crv"] = row.crv;
        if (!row.tags.is_null())
            body["tags"] = row.tags;
        EXPECT_EQ(row.algID, Parsed(body.dump()).AlgID());
    }
}

TEST(KVKeyTest, BodiesWithoutAKeyGiveTheNamesAlone)
{
    const Strings bodies = {"",
                            "<html>",
                            "{",
                            "null",
                            "[]",
                            "\"key\"",
                            R"({"key":null,"tags":{}})",
                            R"({"tags":{"AlgID":"RSA"}})",
                            std::string(100, '[')};
    for (const std::string& body : bodies) {
        SCOPED_TRACE(body);
        const Parsed parsed(body, "-vBAgAAwBAzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzz");
        EXPECT_EQ(1, parsed.result);
        EXPECT_EQ(1u, parsed.key.valid);
        EXPECT_EQ("-vBAgAAwBAzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzz", Narrow(parsed.key.keyName));
        EXPECT_EQ("a b", Narrow(parsed.key.clearName));
        ExpectEmpty(parsed.key);
    }
}

TEST(KVKeyTest, OneCharacterIsNoNumber)
{
    ExpectEmpty(Parsed(R"({"key":{"e":"A"}})").key);
}

TEST(KVKeyTest, MembersOfAnotherFormLeaveTheirFieldsEmpty)
{
    const Parsed wrong(R"({"key":{"kid":null,"kty":null,"crv":null,"key_ops":"sign","n":"*","x":"AA=A","y":[]}})");
    ExpectEmpty(wrong.key);
    const Parsed notAnObject(R"({"key":["kid","n"]})");
    ExpectEmpty(notAnObject.key);

    const Parsed tooLong(json{{"key", {{"n", std::string(4096, 'A')}, {"x", std::string(4092, 'A')}}}}.dump());
    EXPECT_EQ(nullptr, tooLong.key.n);
    EXPECT_EQ(0u, tooLong.key.n_siz);
    EXPECT_EQ(3069u, tooLong.key.x_siz);

    const Parsed texts(R"({"key":{"d":"D","dp":"DP","dq":"DQ","k":"K","p":"P","q":"Q","qi":"QI","key_ops":[]}})");
    const KVKey& key = texts.key;
    Strings read;
    for (const WCHAR* field : {key.d, key.dp, key.dq, key.k, key.p, key.q, key.qi, key.key_ops})
        read.push_back(OrNone(field));
    EXPECT_EQ((Strings{"D", "DP", "DQ", "K", "P", "Q", "QI", ""}), read);

    const Parsed ops(R"({"key":{"key_ops":["sign",null,"","verify"]}})");
    EXPECT_EQ("sign,,verify", OrNone(ops.key.key_ops));
}

TEST(KVKeyTest, VersionIsWhatFollowsTheLastSlash)
{
    const std::string longVersion(200, 'v');
    const std::pair<std::string, TextString> rows[] = {
        {"https://h/keys/k/abc", Wide("abc")},
        {"/abc", Wide("abc")},
        {"no slash", Wide("")},
        {"https://h/keys/k/", Wide("")},
        {"k/" + longVersion.substr(0, 129), Wide(longVersion.substr(0, 129))},
        {"k/" + longVersion, Wide(longVersion.substr(0, 129))},
        // One character a byte, whatever the code page.
        {"k/\xC3\xA9", TextString{WCHAR{0xC3}, WCHAR{0xA9}}},
    };
    for (const auto& [kid, version] : rows)
        EXPECT_EQ(version, TextString(Parsed(json{{"key", {{"kid", kid}}}}.dump()).key.version)) << kid;
}

TEST(KVKeyTest, NamesThatDoNotDecodeAndNamesTooLong)
{
    EXPECT_EQ("InvalidName", Narrow(Parsed("{}", "-vzA" + std::string(39, 'z')).key.clearName));
    const Parsed tooLong("{}", std::string(300, 'b'));
    EXPECT_EQ(std::string(128, 'b'), Narrow(tooLong.key.keyName));
    EXPECT_EQ(std::string(42, 'b'), Narrow(tooLong.key.clearName));
}

TEST(KVKeyTest, FreeClearsThePointersAndMayBeRepeated)
{
    KVKey key;
    ASSERT_EQ(1, KVCParseJSONKey(TEXT("a"), ReadServiceSample("rsa-get").c_str(), &key));
    KVCFreeKVKey(&key);
    EXPECT_EQ(nullptr, key.n);
    EXPECT_EQ(nullptr, key.key_ops);
    EXPECT_EQ(256u, key.n_siz) << "sizes stay";
    EXPECT_EQ(1u, key.valid);
    KVCFreeKVKey(&key);

    KVKey notParsed;
    memset(&notParsed, 0xA5, sizeof(notParsed));
    notParsed.valid = 0;
    KVCFreeKVKey(&notParsed);
    KVCFreeKVKey(nullptr);
}

TEST(KVKeyTest, WithoutMemoryNoSizeStandsBesideAMissingBuffer)
{
    for (const char* sample : {"rsa-get", "ec-p256-create"}) {
        const std::string body = ReadServiceSample(sample);
        std::optional<Parsed> parsed;
        SweepAllocations([&] { parsed.emplace(body); },
                         [&](bool) {
                             const KVKey& key = parsed->key;
                             EXPECT_EQ(1, parsed->result);
                             EXPECT_EQ(key.n == nullptr, key.n_siz == 0);
                             EXPECT_EQ(key.e == nullptr, key.e_siz == 0);
                             EXPECT_EQ(key.x == nullptr, key.x_siz == 0);
                             EXPECT_EQ(key.y == nullptr, key.y_siz == 0);
                         });
    }
}

}  // namespace
