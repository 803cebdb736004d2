// Key records from the vault's answers, and the two forms of key names.
#include <cstring>

#include "tests/keyvault/client_fixture.h"

namespace {

// A record parsed from an answer, in memory that has been used before.
struct Parsed : OwnKey {
    explicit Parsed(const std::string& body, const std::string& name = "web01")
    {
        memset(static_cast<KVKey*>(this), 0xA5, sizeof(KVKey));
        EXPECT_EQ(1, KVCParseJSONKey(Wide(name).c_str(), body.c_str(), this));
    }
};

std::string Text(const BYTE* bytes, DWORD size)
{
    return bytes ? Base64Url(Bytes(bytes, bytes + size)) : "(NULL)";
}

TEST(KVKeyTest, BodiesOfTheLiveService)
{
    for (const char* file : {"rsa-get", "ec-p256-create", "ec-p256k-create", "ec-p384-create", "ec-p521-create"}) {
        SCOPED_TRACE(file);
        const std::string body = ReadServiceSample(file);
        const json sent = json::parse(body)["key"];
        const Parsed key(body);
        EXPECT_EQ(1u, key.valid);
        EXPECT_EQ("web01", Narrow(key.keyName));
        EXPECT_EQ("web01", Narrow(key.clearName));
        EXPECT_EQ(32u, Narrow(key.version).size());
        EXPECT_NE(std::string::npos, sent["kid"].get<std::string>().find("/" + Narrow(key.version)));
        EXPECT_EQ(sent.contains("crv") ? 1 : 0, key.isEC);
        std::string ops;
        for (const std::string op : sent["key_ops"])
            ops += (ops.empty() ? "" : ",") + op;
        EXPECT_EQ(ops, TextOf(key.key_ops));
        const std::pair<const char*, std::string> members[] = {
            {"kty", TextOf(key.kty)},      {"crv", TextOf(key.crv)},      {"n", Text(key.n, key.n_siz)},
            {"e", Text(key.e, key.e_siz)}, {"x", Text(key.x, key.x_siz)}, {"y", Text(key.y, key.y_siz)}};
        for (const auto& [name, text] : members)
            EXPECT_EQ(sent.value(name, "(NULL)"), text) << name;
        EXPECT_EQ("", Narrow(key.AlgID)) << "these have no tags";
    }
}

TEST(KVKeyTest, AlgIDFollowsTagsCurveAndOperations)
{
    const json none = json::object();
    const auto tag = [](const char* text) { return json{{"AlgID", text}}; };
    // Without crv and tags there is no such member.
    const Row<const char*, const char*, const char*, const char*, json, const char*> rows[] = {
        {"RSA, any tag", "RSA", nullptr, "sign", tag("ECDSA_P256"), "RSA"},
        {"RSA, no tags", "RSA", nullptr, "sign", nullptr, ""},
        {"tags of another type", "RSA", nullptr, "sign", "AlgID", ""},
        {"a type in another case is RSA", "ec", "P-256", "sign", none, "RSA"},
        {"ECDH tag, the curve wins", "EC", "P-384", "sign", tag("ECDH_P256"), "ECDH_P384"},
        {"ECDH anywhere in the tag", "EC-HSM", "P-521", "sign", tag("myECDHkey"), "ECDH_P521"},
        {"ECDSA tag", "EC", "P-256", "decrypt", tag("ECDSA_P384"), "ECDSA_P256"},
        {"another tag means ECDSA", "EC", "P-521", "decrypt", tag("x"), "ECDSA_P521"},
        {"tag of 19 characters", "EC", "P-256", "sign", tag("ECDH_89012345678901"), "ECDH_P256"},
        {"tag of 20 characters counts as empty", "EC", "P-256", "sign", tag("ECDH_890123456789012"), "ECDSA_P256"},
        {"unknown curve keeps the tag", "EC", "P-192", "sign", tag("ECDH_P192"), "ECDH_P192"},
        {"numbers are tried in order", "EC", "521-384", "sign", tag("ECDH"), "ECDH_P384"},
        {"a null tag", "EC", "P-256", "sign", {{"AlgID", nullptr}}, "ECDSA_P256"},
        {"no tag, signing", "EC", "P-384", "sign", none, "ECDSA_P384"},
        {"no tag, signing, a curve with the number", "EC", "P-256K", "sign", none, "ECDSA_P256"},
        {"no tag, not signing", "EC", "P-521", "deriveKey", none, "ECDH_P521"},
        {"no tag, not signing, a curve with the number", "EC", "P-256K", "deriveKey", none, ""},
        {"no tag, signing, unknown curve", "EC", "P-192", "sign", none, ""},
    };
    for (const auto& [name, kty, crv, operation, tags, algID] : rows) {
        SCOPED_TRACE(name);
        json body = {{"key", {{"kid", "https://v/keys/web01/0123"}, {"kty", kty}, {"key_ops", {operation}}}}};
        if (crv)
            body["key"]["crv"] = crv;
        if (!tags.is_null())
            body["tags"] = tags;
        EXPECT_EQ(algID, Narrow(Parsed(body.dump()).AlgID));
    }
}

TEST(KVKeyTest, MissingMembersStayEmpty)
{
    for (const std::string body :
         {"", "<html>", "{", "null", "[]", "\"key\"", R"({"key":null,"tags":{}})", R"({"tags":{"AlgID":"RSA"}})",
          R"({"key":["kid","n"]})", "[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[",
          R"({"key":{"kid":null,"kty":null,"crv":null,"key_ops":"sign","n":"*","x":"AA=A","y":[]}})"}) {
        SCOPED_TRACE(body);
        const Parsed key(body, kCodedName);
        EXPECT_EQ(1u, key.valid);
        EXPECT_EQ(kCodedName, Narrow(key.keyName));
        EXPECT_EQ("a b", Narrow(key.clearName));
        for (const WCHAR* text : {key.crv, key.d, key.dp, key.dq, key.k, key.kty, key.p, key.q, key.qi, key.key_ops})
            EXPECT_EQ(nullptr, text);
        for (const BYTE* bytes : {key.e, key.n, key.x, key.y})
            EXPECT_EQ(nullptr, bytes);
        EXPECT_EQ(0u, key.e_siz + key.n_siz + key.x_siz + key.y_siz);
        EXPECT_EQ(0, key.isEC);
        EXPECT_EQ(0, key.AlgID[0] | key.version[0]);
    }
    const Parsed tooLong(json{{"key", {{"n", std::string(4096, 'A')}, {"x", std::string(4092, 'A')}}}}.dump());
    EXPECT_EQ(nullptr, tooLong.n);
    EXPECT_EQ(0u, tooLong.n_siz);
    EXPECT_EQ(3069u, tooLong.x_siz);
}

TEST(KVKeyTest, TextsOfAKey)
{
    const Parsed key(R"({"key":{"d":"D","dp":"DP","dq":"DQ","k":"K","p":"P","q":"Q","qi":"QI","key_ops":[]}})");
    Strings read;
    for (const WCHAR* field : {key.d, key.dp, key.dq, key.k, key.p, key.q, key.qi, key.key_ops})
        read.push_back(TextOf(field));
    EXPECT_EQ((Strings{"D", "DP", "DQ", "K", "P", "Q", "QI", ""}), read);
    const Parsed ops(R"({"key":{"key_ops":["sign",null,"","verify"]}})");
    EXPECT_EQ("sign,,verify", TextOf(ops.key_ops));

    const std::string longest(129, 'v');
    const std::pair<std::string, TextString> versions[] = {
        {"https://h/keys/k/abc", Wide("abc")},
        {"/abc", Wide("abc")},
        {"no slash", Wide("")},
        {"https://h/keys/k/", Wide("")},
        {"k/" + longest, Wide(longest)},
        {"k/" + longest + "v", Wide(longest)},
        // One character per byte, whatever the code page.
        {"k/\xC3\xA9", TextString{WCHAR{0xC3}, WCHAR{0xA9}}},
    };
    for (const auto& [kid, version] : versions)
        EXPECT_EQ(version, TextString(Parsed(json{{"key", {{"kid", kid}}}}.dump()).version)) << kid;

    EXPECT_EQ("InvalidName", Narrow(Parsed("{}", "-vzA" + std::string(39, 'z')).clearName));
    const Parsed tooLong("{}", std::string(300, 'b'));
    EXPECT_EQ(std::string(128, 'b'), Narrow(tooLong.keyName));
    EXPECT_EQ(std::string(42, 'b'), Narrow(tooLong.clearName));
}

TEST(KVKeyTest, FreeClearsThePointersAndMayBeRepeated)
{
    KVKey key;
    ASSERT_EQ(1, KVCParseJSONKey(TEXT("a"), ReadServiceSample("rsa-get").c_str(), &key));
    KVCFreeKVKey(&key);
    EXPECT_TRUE(!key.n && !key.key_ops);
    EXPECT_EQ(256u, key.n_siz) << "sizes stay";
    KVCFreeKVKey(&key);
    memset(&key, 0xA5, sizeof(key));
    key.valid = 0;
    KVCFreeKVKey(&key);
    KVCFreeKVKey(nullptr);
}

// form: 0 plain, 1 coded.
TextString Encoded(const TextString& clear, int form)
{
    WCHAR room[kEncodedNameChars] = {};
    int encoded = -1;
    EXPECT_EQ(1, KVCConvertClearKeyNameToEncoded(clear.c_str(), room, &encoded));
    EXPECT_EQ(form, encoded);
    return room;
}

TEST(KeyNamesTest, ClearNamesEncode)
{
    const std::string letters42 = "abcdefghijklmnopqrstuvwxyz-ABCDEFGHIJ01234";
    const Row<const char*, std::string, int, std::string> rows[] = {
        {"a hyphen inside", "a-b-", 0, "a-b-"},
        {"empty", "", 0, ""},
        {"42 plain characters", letters42, 0, letters42},
        {"a hyphen in front", "-", 1, "-tAA" + Repeat("z", 39)},
        {"a blank", "a b", 1, kCodedName},
        {"an underscore", "_", 1, "-tBA" + Repeat("z", 39)},
        {"the highest code unit", "\xEF\xBF\xBF", 1, "-jKa" + Repeat("z", 39)},
        {"13 units are padded to 43 characters", Repeat(" ", 13), 1, "-" + Repeat("gAA", 13) + "zzz"},
        {"14 units need no padding", Repeat(" ", 14), 1, "-" + Repeat("gAA", 14)},
        {"42 coded units", Repeat("\xC3\xA9", 42), 1, "-" + Repeat("hEA", 42)},
    };
    for (const auto& [name, clear, form, encoded] : rows)
        EXPECT_EQ(encoded, Narrow(Encoded(Wide(clear), form))) << name;
    // A longer name has no coded form, though its buffer would hold one.
    WCHAR room[kEncodedNameChars] = {};
    int coded = -1;
    EXPECT_EQ(0, KVCConvertClearKeyNameToEncoded(Wide(Repeat("\xC3\xA9", 43)).c_str(), room, &coded));
    EXPECT_EQ(0, room[0]);
}

TEST(KeyNamesTest, EncodedNamesDecode)
{
    const std::string foreign = "name-from-outside-of-more-than-42-characters";
    const std::string padding = Repeat("z", 39);
    const Row<const char*, std::string, int, int, std::string> rows[] = {
        {"short", "key-1", 1, 0, "key-1"},
        {"42 characters", "-" + Repeat("A", 41), 1, 0, "-" + Repeat("A", 41)},
        {"a long name without a hyphen is cut", foreign, 1, 0, foreign.substr(0, 42)},
        {"a long name with y is cut", "-vBA" + Repeat("y", 46), 1, 0, "-vBA" + Repeat("y", 38)},
        {"coded", kCodedName, 1, 1, "a b"},
        {"padding alone", "-" + Repeat("z", 42), 1, 1, ""},
        {"what follows padding is ignored", "-vBAzBAvBA" + Repeat("z", 33), 1, 1, "a"},
        {"a triple of value 0 ends the name", "-vBAAAAvBA" + Repeat("z", 33), 1, 1, "a"},
        {"an incomplete last triple", "-" + Repeat("gAA", 14) + "w", 1, 1, Repeat(" ", 14) + "0"},
        {"more than 42 triples", "-" + Repeat("gAA", 42) + "vBA{", 1, 1, Repeat(" ", 42)},
        {"padding in the second place", "-vzA" + padding, 0, 0, ""},
        {"padding in the third place", "-vBz" + padding, 0, 0, ""},
        {"a symbol above x", "-v{A" + padding, 0, 0, ""},
        {"a symbol beyond ASCII", "-v\xC3\xA9" + padding + "A", 0, 0, ""},
    };
    for (const auto& [name, encoded, result, form, clear] : rows) {
        SCOPED_TRACE(name);
        TextString room(kClearNameChars + 1, 'X');
        int foundForm = 0;
        EXPECT_EQ(result, KVCConvertEncodedKeyNameToClear(Wide(encoded).c_str(), room.data(), &foundForm));
        EXPECT_EQ('X', room[kClearNameChars]);
        EXPECT_TRUE(!result || (foundForm == form && clear == Narrow(room.c_str())));
    }
}

TEST(KeyNamesTest, EveryCodeUnitAndEveryLengthRoundTrips)
{
    // A leading "_" makes every name a coded one.
    size_t length = 1;
    for (unsigned unit = 1; unit <= 0xFFFF;) {
        TextString clear(1, '_');
        while (clear.size() < length && unit <= 0xFFFF)
            clear += static_cast<WCHAR>(unit++);
        length = length % kClearNameLimit + 1;

        const TextString encoded = Encoded(clear, 1);
        ASSERT_EQ(clear.size() < 14 ? 43 : 1 + 3 * clear.size(), encoded.size());
        WCHAR back[kClearNameChars] = {};
        int decoded = 0;
        ASSERT_EQ(1, KVCConvertEncodedKeyNameToClear(encoded.c_str(), back, &decoded));
        ASSERT_EQ(1, decoded);
        ASSERT_EQ(clear, TextString(back)) << "up to unit " << unit;
    }
}

}  // namespace
