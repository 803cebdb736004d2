// Key properties as a host reads and sets them, and the rules behind them.
#include <cstring>

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
        {rsa, "Length", WordBytes(2048)},
        {rsa, "Block Length", WordBytes(256)},
        {rsa, "Export Policy", WordBytes(0)},
        {rsa, "Key Usage", WordBytes(3)},
        {rsa, "Key Type", WordBytes(0)},
        {rsa, "HWND Handle", WordBytes(0)},
        {key, "Length", WordBytes(521)},
        {key, "Block Length", WordBytes(66)},
        {key, "Key Type", WordBytes(0)},
        {opened, "Length", WordBytes(0)},
        {opened, "Block Length", WordBytes(0)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.property);
        const Answer answer = GetKey(row.key, row.property);
        EXPECT_EQ(Hex(row.value.empty() ? NTE_NOT_SUPPORTED : 0), Hex(answer.status));
        EXPECT_EQ(row.value, answer.bytes);
    }
}

TEST_F(ProviderTest, LengthsFollowTheAlgorithmsName)
{
    const std::pair<const char*, NCRYPT_SUPPORTED_LENGTHS> rows[] = {{"RSA", {2048, 4096, 8, 2048}},
                                                                     {"ECDSA_P256", {256, 256, 0, 256}},
                                                                     {"ECDH_P384", {384, 384, 0, 384}},
                                                                     {"ECDSA_P521", {521, 521, 0, 521}}};
    for (const auto& [algorithm, lengths] : rows) {
        const BYTE* bytes = reinterpret_cast<const BYTE*>(&lengths);
        EXPECT_EQ(Bytes(bytes, bytes + sizeof(lengths)), GetKey(NewKey(algorithm), "Lengths").bytes) << algorithm;
    }

    const auto opened = Handle(NewKey(""));
    DWORD size = 0;
    EXPECT_EQ(0, table->GetKeyProperty(First(), opened, TEXT("Lengths"), nullptr, 0, &size, 0));
    EXPECT_EQ(16u, size);
    BYTE room[16];
    size = 0;
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Hex(table->GetKeyProperty(First(), opened, TEXT("Lengths"), room, 16, &size, 0)));
    EXPECT_EQ(16u, size);
}

TEST_F(ProviderTest, StructuresReadAreFreshAndEmpty)
{
    KSP_KEY* key = NewKey("RSA");
    SECURITY_DESCRIPTOR set = {};
    ASSERT_TRUE(InitializeSecurityDescriptor(&set, SECURITY_DESCRIPTOR_REVISION));
    const BYTE* bytes = reinterpret_cast<const BYTE*>(&set);
    const Bytes empty(bytes, bytes + sizeof(set));
    EXPECT_EQ(empty, GetKey(key, "Security Descr").bytes);

    const Answer policy = GetKey(key, "UI Policy");
    Bytes expected(sizeof(NCRYPT_UI_POLICY), 0);
    expected[0] = 1;  // dwVersion
    EXPECT_EQ(expected, policy.bytes);
    EXPECT_EQ(0, SetKey(key, "UI Policy", Bytes(sizeof(NCRYPT_UI_POLICY), 7)));
    EXPECT_EQ(expected, GetKey(key, "UI Policy").bytes);
}

TEST_F(ProviderTest, ShortBuffersAreToldTheSize)
{
    KSP_KEY* key = NewKey("RSA", "name");
    ASSERT_EQ(0, SetKey(key, "mine", {1, 2, 3}, kOnly));
    struct Row {
        const char* property;
        DWORD flags, size;
    };
    const Row rows[] = {{"Name", 0, 10}, {"Length", 0, 4}, {"mine", kOnly, 3}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.property);
        Bytes room(row.size, 0xEE);
        DWORD size = 0;
        const auto handle = Handle(key);
        EXPECT_EQ(Hex(NTE_BUFFER_TOO_SMALL), Hex(table->GetKeyProperty(First(), handle, Wide(row.property).c_str(),
                                                                       room.data(), row.size - 1, &size, row.flags)));
        EXPECT_EQ(row.size, size);
        EXPECT_EQ(Bytes(row.size, 0xEE), room);
    }
    EXPECT_EQ(3u, LinesWith("KelvaroGetKeyProperty Error 0x80090028 1").size());
}

// What a set property does to the key object, and whether it stands in the list afterwards.
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
    const Bytes one = WordBytes(1);
    const Bytes text = TextBytes("text");
    const Row rows[] = {
        {"usage is always stored", "Key Usage", WordBytes(2), 0, false, 0, true},
        {"usage of nothing", "Key Usage", WordBytes(0), 0, false, 0, true},
        {"usage of another size", "Key Usage", {1}, 0, false, NTE_BAD_DATA, false},
        {"size comes before state", "Key Usage", {1}, 0, true, NTE_BAD_DATA, false},
        {"usage of a finalized key", "Key Usage", one, 0, true, NTE_BAD_KEY_STATE, false},
        {"usage with a machine flag", "Key Usage", one, 0x20, false, NTE_BAD_FLAGS, false},
        {"usage, silently", "Key Usage", one, NCRYPT_SILENT_FLAG, false, 0, true},
        {"opaque usage of a finalized key", "Key Usage", one, kOnly, true, 0, true},
        {"length is never stored", "Length", WordBytes(4096), kPersist, false, 0, false},
        {"length of a finalized key", "Length", WordBytes(4096), 0, true, NTE_BAD_KEY_STATE, false},
        {"length of another size", "Length", Bytes(5), 0, true, NTE_BAD_DATA, false},
        {"policy of a finalized key", "Export Policy", WordBytes(0), 0, true, NTE_BAD_KEY_STATE, false},
        {"policy of nothing", "Export Policy", WordBytes(0), 0, false, 0, true},
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
        {"private blob of no kind", "PRIVATEBLOB", WordBytes(0x31415352), 0, false, NTE_BAD_DATA, false},
        {"private blob, short", "PRIVATEBLOB", WordBytes(0x32415352), 0, false, NTE_BAD_KEY, false},
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
        const Answer stored = GetKey(key, row.property, kOnly);
        EXPECT_EQ(Hex(row.stored ? 0 : NTE_NOT_FOUND), Hex(stored.status));
        if (row.stored) {
            EXPECT_EQ(row.value, stored.bytes);
        }
    }
}

TEST_F(ProviderTest, SetValuesReadBack)
{
    KSP_KEY* key = NewKey("RSA");
    EXPECT_EQ(0, SetKeyWord(key, "Key Usage", 0));
    EXPECT_EQ(0u, key->dwKeyUsage);
    EXPECT_TRUE(root.Logged("Key Usage = 0", 10));
    EXPECT_EQ(0, SetKey(key, "Key Usage", WordBytes(2), kOnly));
    EXPECT_EQ(0u, GetKey(key, "Key Usage").number());
    EXPECT_EQ(2u, GetKey(key, "Key Usage", kOnly).number());

    // The handle of a 64-bit host: its low word counts.
    EXPECT_EQ(0, SetKey(key, "HWND Handle", {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x08}));
    EXPECT_EQ(0x44332211u, GetKey(key, "HWND Handle").number());
    EXPECT_EQ(0, SetKey(key, "HWND Handle", {0x11, 0x22}));
    EXPECT_EQ(0x2211u, GetKey(key, "HWND Handle").number());

    EXPECT_EQ(0, SetKey(key, "Use Context", TextBytes("the first")));
    EXPECT_EQ(0, SetKey(key, "Use Context", TextBytes("second")));
    EXPECT_EQ("second", GetKey(key, "Use Context").text());

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
        EXPECT_EQ("context", GetKey(key, "Use Context").text()) << size;
    }
}

TEST_F(ProviderTest, LengthRuleRefusesButKeeps)
{
    const struct {
        const char* algorithm;
        std::vector<DWORD> allowed, refused;
    } rows[] = {
        {"RSA", {2048, 2056, 4096}, {1024, 2050, 4104}},
        {"ECDH_P384", {384}, {256}},
        {"ECDSA_P256", {256}, {264}},
        {"ECDSA_P521", {521}, {528}},
        {"", {7}, {}},
    };
    for (const auto& row : rows) {
        const auto set = [&](DWORD bits, SECURITY_STATUS expected) {
            KSP_KEY* key = NewKey(row.algorithm);
            EXPECT_EQ(Hex(expected), Hex(SetKeyWord(key, "Length", bits))) << row.algorithm << " " << bits;
            EXPECT_EQ(bits, GetKey(key, "Length").number());
        };
        for (const DWORD bits : row.allowed)
            set(bits, 0);
        for (const DWORD bits : row.refused)
            set(bits, NTE_NOT_SUPPORTED);
    }
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
        EXPECT_EQ(Hex(row.allowed ? 0 : NTE_NOT_SUPPORTED), Hex(SetKeyWord(key, "Export Policy", row.policy)));
        EXPECT_EQ(0u, GetKey(key, "Export Policy").number());
        EXPECT_EQ(row.allowed, GetKey(key, "Export Policy", kOnly).status == 0);
        EXPECT_EQ(row.line ? 2u : 1u, LinesWith("SetBuildinKeyProperty ").size());
        EXPECT_TRUE(!row.line || root.Logged(row.line, 8));
    }
    KSP_KEY* withoutClient = NewKey("RSA", "");
    withoutClient->kvc = nullptr;
    EXPECT_EQ(0, SetKeyWord(withoutClient, "Export Policy", 0));
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Hex(SetKeyWord(withoutClient, "Export Policy", 1)));
}

// A self-relative descriptor with an owner of two sub-authorities: 20 bytes of head, 16 of owner.
Bytes Descriptor()
{
    SECURITY_DESCRIPTOR_RELATIVE head = {};
    head.Revision = SECURITY_DESCRIPTOR_REVISION;
    head.Control = SE_SELF_RELATIVE;
    head.Owner = sizeof(head);
    Bytes bytes(36, 0);
    std::memcpy(bytes.data(), &head, sizeof(head));
    bytes[20] = 1;  // revision
    bytes[21] = 2;  // sub-authorities
    bytes[27] = 5;
    bytes[28] = 32;
    return bytes;
}

Bytes WithOwnerAt(DWORD offset)
{
    Bytes bytes = Descriptor();
    std::memcpy(bytes.data() + offsetof(SECURITY_DESCRIPTOR_RELATIVE, Owner), &offset, sizeof(offset));
    return bytes;
}

TEST_F(ProviderTest, SecurityDescriptorsAreCheckedAndOnlyKept)
{
    const Bytes good = Descriptor();
    Bytes longer = good;
    longer.push_back(0);
    Bytes cut(good.begin(), good.end() - 1);
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
        {"longer than needed", longer, 7, 0},
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
    const BCRYPT_RSAKEY_BLOB header = {0x33415352, 3072, 3, 384, 192, 192};
    Bytes blob(2000, 0);
    std::memcpy(blob.data(), &header, sizeof(header));
    EXPECT_EQ(0, SetKey(key, "PRIVATEBLOB", blob, kPersist));
    EXPECT_EQ(3072u, GetKey(key, "Length").number());
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
        {"get: provider", NTE_INVALID_HANDLE, table->GetKeyProperty(0, key, nullptr, nullptr, 0, nullptr, 0)},
        {"get: key", NTE_INVALID_HANDLE, table->GetKeyProperty(provider, provider, nullptr, nullptr, 0, nullptr, 0)},
        {"get: name", NTE_INVALID_PARAMETER, table->GetKeyProperty(provider, key, nullptr, nullptr, 0, &size, 0)},
        {"get: long name", NTE_INVALID_PARAMETER,
         table->GetKeyProperty(provider, key, tooLong.c_str(), nullptr, 0, &size, 0)},
        {"get: longest name", NTE_NOT_SUPPORTED,
         table->GetKeyProperty(provider, key, longest.c_str(), nullptr, 0, &size, 0)},
        {"get: size", NTE_INVALID_PARAMETER,
         table->GetKeyProperty(provider, key, TEXT("Length"), value, 4, nullptr, 0)},
        {"get: other flags", 0, table->GetKeyProperty(provider, key, TEXT("Length"), value, 4, &size, 0xBFFFFFFF)},
        {"set: provider", NTE_INVALID_HANDLE, table->SetKeyProperty(0, key, nullptr, nullptr, 0, 0)},
        {"set: key", NTE_INVALID_HANDLE, table->SetKeyProperty(provider, 0, nullptr, nullptr, 0, 0)},
        {"set: name", NTE_INVALID_PARAMETER, table->SetKeyProperty(provider, key, nullptr, value, 4, 0x20)},
        {"set: long name", NTE_INVALID_PARAMETER,
         table->SetKeyProperty(provider, key, tooLong.c_str(), value, 4, 0x20)},
        {"set: longest name", 0, table->SetKeyProperty(provider, key, longest.c_str(), value, 4, kOnly)},
        {"set: value", NTE_INVALID_PARAMETER, table->SetKeyProperty(provider, key, TEXT("Length"), nullptr, 4, 0x20)},
    };
    for (const Row& row : rows)
        EXPECT_EQ(Hex(row.expected), Hex(row.got)) << row.name;
    EXPECT_EQ(5u, LinesWith("KelvaroSetKeyProperty Error 0x8009002").size());
    EXPECT_EQ(6u, LinesWith("KelvaroGetKeyProperty Error 0x8009002").size());
}

TEST_F(ProviderTest, ValuesAreTracedByTheKindOfTheirName)
{
    KSP_KEY* key = NewKey("RSA");
    const auto handle = Handle(key);
    const NCRYPT_PROV_HANDLE provider = First();
    root.ClearLog();
    // Trace lines come before any test, for calls that are refused too.
    SetKeyWord(key, "Length", 3072);
    SetKey(key, "LENGTH", Bytes{1, 2});
    table->SetKeyProperty(provider, handle, TEXT("Enabled Use Count"), nullptr, 4, 0);
    SetKey(key, "SmartCardReader", TextBytes("reader"));
    Bytes open = TextBytes("unended");
    open.resize(open.size() - sizeof(WCHAR));
    SetKey(key, "Use Context", TextBytes("ended, and more"));
    SetKey(key, "SmartCardPin", open);
    table->SetKeyProperty(provider, handle, TEXT("Name"), nullptr, 0, 0);
    SetKey(key, "mine", TextBytes("opaque"));
    table->SetKeyProperty(provider, handle, nullptr, nullptr, 0, 0);
    GetKey(key, "Length");
    GetKey(key, "Name");
    GetKey(key, "Lengths");
    std::vector<std::string> traced;
    for (const std::string& line : root.LogLines()) {
        if (line.find("KelvaroSet") == 0 || line.find("KelvaroGet") == 0) {
            if (line.substr(line.size() - 3) == " 10")
                traced.push_back(line);
        }
    }
    const std::vector<std::string> expected = {
        "KelvaroSetKeyProperty Length 3072 10",
        "KelvaroSetKeyProperty LENGTH -1 10",
        "KelvaroSetKeyProperty Enabled Use Count -1 10",
        "KelvaroSetKeyProperty SmartCardReader reader 10",
        "KelvaroSetKeyProperty Use Context ended, and more 10",
        "KelvaroSetKeyProperty SmartCardPin unended 10",
        "KelvaroSetKeyProperty Name (NULL) 10",
        "KelvaroSetKeyProperty mine (NULL) 10",
        "KelvaroSetKeyProperty (NULL) (NULL) 10",
        "KelvaroGetKeyProperty Length 3072 10",
        "KelvaroGetKeyProperty Name k 10",
        "KelvaroGetKeyProperty Lengths (NULL) 10",
    };
    EXPECT_EQ(expected, traced);
    EXPECT_TRUE(root.Logged("KelvaroGetKeyProperty Length 0", 4));
    EXPECT_TRUE(root.Logged("KelvaroGetKeyProperty Length 4", 4));
    EXPECT_TRUE(root.Logged("KelvaroSetKeyProperty mine", 4));
    EXPECT_TRUE(root.Logged("SetBuildinKeyProperty mine", 10));
}

}  // namespace
