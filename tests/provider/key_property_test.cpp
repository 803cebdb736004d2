// Key properties as a host reads and sets them, and the rules behind them.
#include "provider/key_properties.h"
#include "provider/property_list.h"
#include "tests/provider/provider_fixture.h"

namespace {

constexpr DWORD kPersist = NCRYPT_PERSIST_FLAG;
constexpr DWORD kOnly = NCRYPT_PERSIST_ONLY_FLAG;

size_t StoredCount(const KSP_KEY* key)
{
    size_t count = 0;
    for (const PropertyLink* link = key->PropertyList.next; link != &key->PropertyList; link = link->next)
        count++;
    return count;
}

TEST_F(ProviderTest, PropertiesRead)
{
    KSP_KEY* key = NewKey("ECDSA_P521", "signing key", 0);
    KSP_KEY* rsa = NewKey("RSA", "");
    KSP_KEY* opened = NewKey("");
    SECURITY_DESCRIPTOR noSecurity = {};
    ASSERT_TRUE(InitializeSecurityDescriptor(&noSecurity, SECURITY_DESCRIPTOR_REVISION));
    const struct {
        KSP_KEY* key;
        const char* property;
        Bytes value;  // empty for what is not there
    } rows[] = {
        {key, "Name", TextBytes("signing key")},
        {key, "Unique Name", TextBytes("signing key")},
        {key, "Algorithm Name", TextBytes("ECDSA_P521")},
        {key, "Algorithm Group", TextBytes("RSA")},
        {key, "Use Context", TextBytes("")},
        {rsa, "Name", {}},
        {rsa, "Unique Name", {}},
        {key, "name", {}},
        {key, "PRIVATEBLOB", {}},
        {rsa, "Length", Words({2048})},
        {rsa, "Block Length", Words({256})},
        {rsa, "Export Policy", Words({0})},
        {rsa, "Key Usage", Words({3})},
        {rsa, "Key Type", Words({0})},
        {rsa, "HWND Handle", Words({0})},
        {key, "Length", Words({521})},
        {key, "Block Length", Words({66})},
        {key, "Key Type", Words({0})},
        {opened, "Length", Words({0})},
        {opened, "Block Length", Words({0})},
        {rsa, "Lengths", Words({2048, 4096, 8, 2048})},
        {NewKey("ECDSA_P256"), "Lengths", Words({256, 256, 0, 256})},
        {NewKey("ECDH_P384"), "Lengths", Words({384, 384, 0, 384})},
        {key, "Lengths", Words({521, 521, 0, 521})},
        {rsa, "Security Descr", BytesOf(noSecurity)},
        {rsa, "UI Policy", BytesOf(NCRYPT_UI_POLICY{1, 0, nullptr, nullptr, nullptr})},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.property);
        const Result answer = GetKey(row.key, row.property);
        EXPECT_EQ(Hex(row.value.empty() ? NTE_NOT_SUPPORTED : 0), Hex(answer.status));
        EXPECT_EQ(row.value, answer.bytes);
    }
    const Result noLengths = GetKey(opened, "Lengths");
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Hex(noLengths.status));
    EXPECT_EQ(16u, noLengths.bytes.size()) << "which can be asked for";
}

TEST_F(ProviderTest, ShortBuffersAreToldTheSize)
{
    KSP_KEY* key = NewKey("RSA");
    ASSERT_EQ(0, SetKey(key, "Key Usage", Words({2})));  // stored, too
    for (const DWORD flags : {DWORD{0}, kOnly}) {
        Bytes room(4, 0xEE);
        DWORD size = 0;
        EXPECT_EQ(Hex(NTE_BUFFER_TOO_SMALL),
                  Hex(table->GetKeyProperty(First(), Handle(key), TEXT("Key Usage"), room.data(), 3, &size, flags)));
        EXPECT_EQ(4u, size);
        EXPECT_EQ(Bytes(4, 0xEE), room);
    }
    EXPECT_EQ(2u, LinesWith("KelvaroGetKeyProperty Error 0x80090028 1").size());
}

// What a set property does to the key object, and whether it is in the list afterwards.
TEST_F(ProviderTest, SetPropertiesActAndAreStoredByTheirRules)
{
    struct Row {
        const char* name;
        const char* property;
        Bytes value;
        DWORD flags;
        bool finalized;
        SECURITY_STATUS status;
        bool stored;
    };
    const Bytes one = Words({1});
    const Bytes text = TextBytes("text");
    const Row rows[] = {
        {"usage is always stored", "Key Usage", Words({2}), 0, false, 0, true},
        {"usage of nothing", "Key Usage", Words({0}), 0, false, 0, true},
        {"usage of another size", "Key Usage", {1}, 0, false, NTE_BAD_DATA, false},
        {"size comes before state", "Key Usage", {1}, 0, true, NTE_BAD_DATA, false},
        {"usage of a finalized key", "Key Usage", one, 0, true, NTE_BAD_KEY_STATE, false},
        {"usage with a machine flag", "Key Usage", one, 0x20, false, NTE_BAD_FLAGS, false},
        {"usage, silently", "Key Usage", one, NCRYPT_SILENT_FLAG, false, 0, true},
        {"opaque usage of a finalized key", "Key Usage", one, kOnly, true, 0, true},
        {"length is never stored", "Length", Words({4096}), kPersist, false, 0, false},
        {"length of a finalized key", "Length", Words({4096}), 0, true, NTE_BAD_KEY_STATE, false},
        {"length of another size", "Length", Bytes(5), 0, true, NTE_BAD_DATA, false},
        {"policy of a finalized key", "Export Policy", Words({0}), 0, true, NTE_BAD_KEY_STATE, false},
        {"policy of nothing", "Export Policy", Words({0}), 0, false, 0, true},
        {"window", "HWND Handle", one, 0, true, 0, false},
        {"window, kept", "HWND Handle", one, kPersist, true, 0, true},
        {"policy of the interface", "UI Policy", one, 0, true, 0, false},
        {"policy of the interface, kept", "UI Policy", one, kPersist, true, 0, true},
        {"context", "Use Context", text, 0, true, 0, false},
        {"context, kept", "Use Context", text, kPersist, true, 0, true},
        {"certificate", "SmartCardKeyCertificate", one, 0, true, 0, false},
        {"certificate, kept", "SmartCardKeyCertificate", one, kPersist, true, 0, true},
        {"certificate in other letters", "smartcardkeycertificate", one, 0, true, NTE_NOT_SUPPORTED, false},
        {"a name of its own", "mine", one, 0, false, NTE_NOT_SUPPORTED, false},
        {"a name of its own, persisted", "mine", one, kPersist, false, NTE_NOT_SUPPORTED, false},
        {"a name of its own, opaque", "mine", one, kOnly, true, 0, true},
        {"nothing, opaque", "mine", {}, kOnly, true, 0, true},
        {"read only", "Name", text, 0, false, NTE_NOT_SUPPORTED, false},
        {"private blob of no kind", "PRIVATEBLOB", Words({0x31415352}), 0, false, NTE_BAD_DATA, false},
        {"private blob, short", "PRIVATEBLOB", Words({0x32415352}), 0, false, NTE_BAD_KEY, false},
        {"private blob of three bytes", "PRIVATEBLOB", {0x52, 0x53, 0x41}, 0, false, NTE_BAD_DATA, false},
        {"private blob of a finalized key", "PRIVATEBLOB", one, 0, true, NTE_BAD_KEY_STATE, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        KSP_KEY* key = NewKey("RSA");
        key->fFinalized = row.finalized;
        root.ClearLog();
        EXPECT_EQ(Hex(row.status), Hex(SetKey(key, row.property, row.value, row.flags)));
        EXPECT_EQ(row.status != 0, LinesWith("KelvaroSetKeyProperty Error 0x").size() == 1);
        const Result stored = GetKey(key, row.property, kOnly);
        EXPECT_EQ(Hex(row.stored ? 0 : NTE_NOT_FOUND), Hex(stored.status));
        if (row.stored) {
            EXPECT_EQ(row.value, stored.bytes);
        }
    }
}

TEST_F(ProviderTest, SetValuesReadBack)
{
    KSP_KEY* key = NewKey("RSA");
    EXPECT_EQ(0, SetKey(key, "Key Usage", Words({0})));
    EXPECT_EQ(0u, key->dwKeyUsage);
    EXPECT_TRUE(root.Logged("Key Usage = 0", 10));
    EXPECT_EQ(0, SetKey(key, "Key Usage", Words({2}), kOnly));
    EXPECT_EQ(Words({0}), GetKey(key, "Key Usage").bytes);
    EXPECT_EQ(Words({2}), GetKey(key, "Key Usage", kOnly).bytes);

    // The handle of a 64-bit host: its low word counts.
    EXPECT_EQ(0, SetKey(key, "HWND Handle", {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x08}));
    EXPECT_EQ(Words({0x44332211}), GetKey(key, "HWND Handle").bytes);
    EXPECT_EQ(0, SetKey(key, "HWND Handle", {0x11, 0x22}));
    EXPECT_EQ(Words({0x2211}), GetKey(key, "HWND Handle").bytes);

    EXPECT_EQ(0, SetKey(key, "Use Context", TextBytes("the first")));
    EXPECT_EQ(0, SetKey(key, "Use Context", TextBytes("second")));
    EXPECT_EQ(TextBytes("second"), GetKey(key, "Use Context").bytes);
    const Bytes policy = GetKey(key, "UI Policy").bytes;
    EXPECT_EQ(0, SetKey(key, "UI Policy", Bytes(policy.size(), 7)));
    EXPECT_EQ(policy, GetKey(key, "UI Policy").bytes) << "not kept";

    EXPECT_EQ(0, SetKey(key, "mine", {1, 2}, kOnly));
    EXPECT_EQ(0, SetKey(key, "other", {3}, kOnly));
    EXPECT_EQ(0, SetKey(key, "mine", {4}, kOnly));
    EXPECT_EQ(Bytes{4}, GetKey(key, "mine", kOnly).bytes);
    EXPECT_EQ(Hex(NTE_NOT_FOUND), Hex(GetKey(key, "MINE", kOnly).status));
    EXPECT_EQ(3u, StoredCount(key));
    EXPECT_EQ("mine", Narrow(PropertyFromLink(key->PropertyList.previous)->szName)) << "newer entries stand behind";
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Hex(GetKey(key, "mine").status));
}

// Hosts count the terminator of a context or do not, and their bytes may stand anywhere.
TEST_F(ProviderTest, UseContextIsReadUpToItsTerminator)
{
    KSP_KEY* key = NewKey("RSA");
    Bytes odd = TextBytes("context");
    odd.insert(odd.begin(), 0xEE);
    for (const DWORD size : {DWORD{0}, DWORD{3}, DWORD{14}, DWORD{4000}}) {
        EXPECT_EQ(0, SetKey(key, "Use Context", TextBytes("")));
        EXPECT_EQ(0, table->SetKeyProperty(First(), Handle(key), TEXT("Use Context"), odd.data() + 1, size, 0));
        EXPECT_EQ(TextBytes("context"), GetKey(key, "Use Context").bytes) << size;
    }
}

TEST_F(ProviderTest, LengthRuleRefusesButKeeps)
{
    const std::pair<const char*, std::vector<DWORD>> allowed[] = {
        {"RSA", {2048, 2056, 4096}}, {"ECDH_P384", {384}}, {"ECDSA_P256", {256}}, {"ECDSA_P521", {521}}, {"", {7}}};
    const std::pair<const char*, std::vector<DWORD>> refused[] = {
        {"RSA", {1024, 2050, 4104}}, {"ECDH_P384", {256}}, {"ECDSA_P256", {264}}, {"ECDSA_P521", {528}}};
    const auto set = [&](const auto& rows, SECURITY_STATUS status) {
        for (const auto& [algorithm, lengths] : rows) {
            for (const DWORD bits : lengths) {
                KSP_KEY* key = NewKey(algorithm);
                EXPECT_EQ(Hex(status), Hex(SetKey(key, "Length", Words({bits})))) << algorithm << " " << bits;
                EXPECT_EQ(Words({bits}), GetKey(key, "Length").bytes);
            }
        }
    };
    set(allowed, 0);
    set(refused, NTE_NOT_SUPPORTED);
}

TEST_F(ProviderTest, ExportPolicyIsJudgedByTheSetting)
{
    struct Row {
        DWORD option, policy;
        bool allowed;
        const char* line;
    };
    const Row rows[] = {
        {0, 0, true, nullptr},
        {0, 1, false, "SetBuildinKeyProperty EXPORTABLE_KEYS_UNSUPPORTED Error 0x80090029"},
        {0, 0x10, false, nullptr},
        {1, 0, true, nullptr},
        {1, 15, true, nullptr},
        {1, 0x10, false, nullptr},
        {2, 0, false, "SetBuildinKeyProperty bad Exportable Value  2"},
        {2, 1, false, "SetBuildinKeyProperty bad Exportable Value  2"},
        {2, 0x10, false, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.option) + " " + std::to_string(row.policy));
        KSP_KEY* key = NewKey("RSA");
        key->kvc->exportableOption = row.option;
        root.ClearLog();
        EXPECT_EQ(Hex(row.allowed ? 0 : NTE_NOT_SUPPORTED), Hex(SetKey(key, "Export Policy", Words({row.policy}))));
        EXPECT_EQ(Words({0}), GetKey(key, "Export Policy").bytes);
        EXPECT_EQ(row.allowed, GetKey(key, "Export Policy", kOnly).status == 0);
        EXPECT_EQ(row.line ? 2u : 1u, LinesWith("SetBuildinKeyProperty ").size());
        EXPECT_TRUE(!row.line || root.Logged(row.line, 8));
    }
    KSP_KEY* withoutClient = NewKey("RSA", "");
    withoutClient->kvc = nullptr;
    EXPECT_EQ(0, SetKey(withoutClient, "Export Policy", Words({0})));
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Hex(SetKey(withoutClient, "Export Policy", Words({1}))));
}

// A self-relative descriptor with an owner of two sub-authorities: 20 bytes of head, 16 of owner.
Bytes WithOwnerAt(DWORD offset)
{
    SECURITY_DESCRIPTOR_RELATIVE head = {};
    head.Revision = SECURITY_DESCRIPTOR_REVISION;
    head.Control = SE_SELF_RELATIVE;
    head.Owner = offset;
    return BytesOf(head) + Bytes{1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0, 0, 0, 0, 0};
}

TEST_F(ProviderTest, SecurityDescriptorsAreCheckedAndOnlyKept)
{
    const Bytes good = WithOwnerAt(sizeof(SECURITY_DESCRIPTOR_RELATIVE));
    const Bytes cut(good.begin(), good.end() - 1);
    Bytes wrongRevision = good;
    wrongRevision[0] = 2;
    // Eight bytes before the end an owner that says it has twelve.
    Bytes overTheEdge = WithOwnerAt(static_cast<DWORD>(good.size() - 8));
    overTheEdge[good.size() - 8 + offsetof(SID, SubAuthorityCount)] = 1;
    struct Row {
        const char* name;
        Bytes value;
        DWORD flags;
        SECURITY_STATUS status;
    };
    const Row rows[] = {
        {"access list kind", good, 4, 0},
        {"longer than needed", good + Bytes{0}, 7, 0},
        {"persist flag alone", good, kPersist, 0},
        {"no flags", good, 0, NTE_BAD_FLAGS},
        {"silent alone", good, NCRYPT_SILENT_FLAG, NTE_BAD_FLAGS},
        {"opaque", good, kOnly | 4, NTE_BAD_FLAGS},
        {"nothing", {}, 4, NTE_BAD_DATA},
        {"head only", Bytes(good.begin(), good.begin() + 20), 4, NTE_BAD_DATA},
        {"a byte short", cut, 4, NTE_BAD_DATA},
        {"wrong revision", wrongRevision, 4, NTE_BAD_DATA},
        {"owner outside", WithOwnerAt(1u << 30), 4, NTE_BAD_DATA},
        {"owner over the edge", overTheEdge, 4, NTE_BAD_DATA},
    };
    const Bytes read = GetKey(NewKey("RSA"), "Security Descr").bytes;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        KSP_KEY* key = NewKey("RSA");
        key->fFinalized = 1;
        EXPECT_EQ(Hex(row.status), Hex(SetKey(key, "Security Descr", row.value, row.flags)));
        EXPECT_EQ(0u, StoredCount(key));
        EXPECT_EQ(row.status ? 0u : row.flags, key->dwSecurityInfo);
        EXPECT_EQ(row.status ? Bytes() : row.value,
                  Bytes(key->pbSecurityDescr, key->pbSecurityDescr + key->cbSecurityDescr));
        EXPECT_EQ(read, GetKey(key, "Security Descr").bytes);
    }
}

TEST_F(ProviderTest, PrivateBlobSetsTheLength)
{
    KSP_KEY* key = NewKey("RSA");
    EXPECT_EQ(0, SetKey(key, "PRIVATEBLOB", RsaBlob(3072, BCRYPT_RSAFULLPRIVATE_MAGIC), kPersist));
    EXPECT_EQ(Words({3072}), GetKey(key, "Length").bytes);
    EXPECT_EQ("RSAFULLPRIVATEBLOB", Narrow(key->pszPrivateBlobType));
    EXPECT_NE(nullptr, key->pbPrivateKey);
    EXPECT_EQ(0u, StoredCount(key));
}

TEST_F(ProviderTest, NamingTheCertificatePropertyMarksTheKey)
{
    KSP_KEY* probed = NewKey("RSA");
    EXPECT_EQ(Hex(NTE_NOT_FOUND), Hex(GetKey(probed, "SmartCardKeyCertificate", kOnly).status));
    EXPECT_EQ(0u, probed->publishCert);
    root.ClearLog();
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Hex(GetKey(probed, "SmartCardKeyCertificate").status));
    EXPECT_EQ(1u, probed->publishCert);
    EXPECT_TRUE(LinesWith("Error").empty()) << "a probe is no error";
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Hex(GetKey(NewKey("RSA"), "smartcardkeycertificate").status));
    EXPECT_TRUE(root.Logged("KelvaroGetKeyProperty Error 0x80090029", 1));

    for (const char* name : {"SmartCardKeyCertificate", "smartcardKEYcertificate"}) {
        SCOPED_TRACE(name);
        KSP_KEY* key = NewKey("RSA");
        // The mark comes before the test of the flags and stays.
        EXPECT_EQ(Hex(NTE_BAD_FLAGS), Hex(SetKey(key, name, {1}, 0x20)));
        EXPECT_EQ(1u, key->publishCert);
        EXPECT_TRUE(root.Logged("KelvaroSetKeyProperty SmartCardKeyCertificate Set publishCert", 8));
    }
}

TEST_F(ProviderTest, KeyPropertyCallsTestTheirArgumentsInOrder)
{
    const auto key = Handle(NewKey("RSA"));
    const NCRYPT_PROV_HANDLE provider = First();
    const TextString longest(64, 'p'), tooLong(65, 'p');
    BYTE value[4] = {};
    DWORD size = 0;
    struct Row {
        const char* name;
        SECURITY_STATUS expected, got;
    };
    const Row rows[] = {
        {"get: key", NTE_INVALID_HANDLE, table->GetKeyProperty(provider, provider, nullptr, nullptr, 0, nullptr, 0)},
        {"get: name", NTE_INVALID_PARAMETER, table->GetKeyProperty(provider, key, nullptr, nullptr, 0, &size, 0)},
        {"get: long name", NTE_INVALID_PARAMETER,
         table->GetKeyProperty(provider, key, tooLong.c_str(), nullptr, 0, &size, 0)},
        {"get: longest name", NTE_NOT_SUPPORTED,
         table->GetKeyProperty(provider, key, longest.c_str(), nullptr, 0, &size, 0)},
        {"get: size", NTE_INVALID_PARAMETER,
         table->GetKeyProperty(provider, key, TEXT("Length"), value, 4, nullptr, 0)},
        {"get: other flags", 0, table->GetKeyProperty(provider, key, TEXT("Length"), value, 4, &size, 0xBFFFFFFF)},
        {"set: key", NTE_INVALID_HANDLE, table->SetKeyProperty(provider, 0, nullptr, nullptr, 0, 0)},
        {"set: name", NTE_INVALID_PARAMETER, table->SetKeyProperty(provider, key, nullptr, value, 4, 0x20)},
        {"set: long name", NTE_INVALID_PARAMETER,
         table->SetKeyProperty(provider, key, tooLong.c_str(), value, 4, 0x20)},
        {"set: longest name", 0, table->SetKeyProperty(provider, key, longest.c_str(), value, 4, kOnly)},
        {"set: value", NTE_INVALID_PARAMETER, table->SetKeyProperty(provider, key, TEXT("Length"), nullptr, 4, 0x20)},
    };
    for (const Row& row : rows)
        EXPECT_EQ(Hex(row.expected), Hex(row.got)) << row.name;
    EXPECT_EQ(4u, LinesWith("KelvaroSetKeyProperty Error 0x8009002").size());
    EXPECT_EQ(5u, LinesWith("KelvaroGetKeyProperty Error 0x8009002").size());
}

TEST_F(ProviderTest, ValuesAreTracedByTheKindOfTheirName)
{
    KSP_KEY* key = NewKey("RSA");
    const auto once = [&](const std::string& line) { return LinesWith(line + " 10").size() == 1; };
    const struct {
        const char* property;
        Bytes value;  // empty for NULL
        std::string traced;
    } rows[] = {
        {"Length", Words({3072}), "3072"},
        {"LENGTH", {1, 2}, "-1"},
        {"Enabled Use Count", {}, "-1"},
        {"SmartCardReader", TextBytes("reader"), "reader"},
        {"Use Context", TextBytes("ended") + TextBytes("and more"), "ended"},
        {"SmartCardPin", TextBytes("unended", false), "unended"},
        {"Name", {}, "(NULL)"},
        {"mine", TextBytes("opaque"), "(NULL)"},
    };
    // Trace lines come before any test, for calls that are refused too.
    for (const auto& row : rows) {
        Bytes value = row.value;
        table->SetKeyProperty(First(), Handle(key), Wide(row.property).c_str(), value.empty() ? nullptr : value.data(),
                              static_cast<DWORD>(value.size()), 0);
        EXPECT_TRUE(once(std::string("KelvaroSetKeyProperty ") + row.property + " " + row.traced)) << row.property;
    }
    table->SetKeyProperty(First(), Handle(key), nullptr, nullptr, 0, 0);
    EXPECT_TRUE(once("KelvaroSetKeyProperty (NULL) (NULL)"));
    for (const char* read : {"Length 3072", "Name k", "Lengths (NULL)"}) {
        const std::string property = std::string(read).substr(0, std::string(read).find(' '));
        GetKey(key, property);
        EXPECT_TRUE(once("KelvaroGetKeyProperty " + std::string(read))) << read;
    }
    EXPECT_TRUE(root.Logged("KelvaroGetKeyProperty Length 0", 4));
    EXPECT_TRUE(root.Logged("KelvaroGetKeyProperty Length 4", 4));
    EXPECT_TRUE(root.Logged("KelvaroSetKeyProperty mine", 4));
    EXPECT_TRUE(root.Logged("SetBuildinKeyProperty mine", 10));
}

}  // namespace
