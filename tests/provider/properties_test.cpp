// Properties of keys and of the provider, as hosts read and set them.
#include <memory>

#include "provider/property_list.h"
#include "tests/provider/provider_fixture.h"

namespace {

constexpr DWORD kPersist = NCRYPT_PERSIST_FLAG;

class PropertiesTest : public ProviderTest {
  protected:
    static size_t StoredCount(NCRYPT_KEY_HANDLE key)
    {
        size_t count = 0;
        const PropertyLink& head = Record(key)->PropertyList;
        for (const PropertyLink* link = head.next; link != &head; link = link->next)
            count++;
        return count;
    }
};

TEST_F(PropertiesTest, Values)
{
    const NCRYPT_KEY_HANDLE rsa = Pending("RSA"), curve = Pending("ECDSA_P521", "signing key", 0);
    const NCRYPT_KEY_HANDLE opened = OpenAnswered(CurveAnswer("P-256K", Pattern(32), Pattern(32)));
    SECURITY_DESCRIPTOR noSecurity = {};
    ASSERT_TRUE(InitializeSecurityDescriptor(&noSecurity, SECURITY_DESCRIPTOR_REVISION));
    // Without a value: not supported.
    const Row<NCRYPT_KEY_HANDLE, const char*, Bytes> rows[] = {
        {curve, "Name", TextBytes("signing key")},
        {curve, "Unique Name", TextBytes("signing key")},
        {curve, "Algorithm Name", TextBytes("ECDSA_P521")},
        {curve, "Algorithm Group", TextBytes("RSA")},
        {curve, "Use Context", TextBytes("")},
        {curve, "name", {}},
        {curve, "PRIVATEBLOB", {}},
        {curve, "Length", Words({521})},
        {curve, "Block Length", Words({66})},
        {curve, "Key Type", Words({0})},
        {curve, "Lengths", Words({521, 521, 0, 521})},
        {Pending("ECDSA_P256"), "Lengths", Words({256, 256, 0, 256})},
        {Pending("ECDH_P384"), "Lengths", Words({384, 384, 0, 384})},
        {rsa, "Name", {}},
        {rsa, "Unique Name", {}},
        {rsa, "Length", Words({2048})},
        {rsa, "Block Length", Words({256})},
        {rsa, "Lengths", Words({2048, 4096, 8, 2048})},
        {rsa, "Export Policy", Words({0})},
        {rsa, "Key Usage", Words({3})},
        {rsa, "HWND Handle", Words({0})},
        {rsa, "Security Descr", BytesOf(noSecurity)},
        {rsa, "UI Policy", BytesOf(NCRYPT_UI_POLICY{1, 0, nullptr, nullptr, nullptr})},
        {opened, "Length", Words({0})},
        {opened, "Block Length", Words({0})},
    };
    for (const auto& [key, property, value] : rows) {
        SCOPED_TRACE(property);
        const Result answer = GetKey(key, property);
        EXPECT_EQ(Hex(value.empty() ? NTE_NOT_SUPPORTED : 0), Hex(answer.status));
        EXPECT_EQ(value, answer.bytes);
    }
    const Result noLengths = GetKey(opened, "Lengths");
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Hex(noLengths.status));
    EXPECT_EQ(16u, noLengths.needed) << "the size is known";
    EXPECT_EQ(Words({2048}), GetKey(rsa, "Length", 0xBFFFFFFF).bytes) << "other flags";
    const std::pair<const char*, Bytes> ofProvider[] = {
        {"Impl Type", Words({1})},
        {"Max Name Length", Words({42})},
        {"Version", Words({0x10000})},
        {"Security Descr Support", Words({0})},
        {"Name", TextBytes("Zandrel Key Storage Provider for Key Vault")}};
    for (const auto& [property, value] : ofProvider)
        EXPECT_EQ(value, GetKey(0, property).bytes) << property;
}

// Contexts with and without their terminator, with half of it, and so on.
TEST_F(PropertiesTest, AContextEndsWithItsTerminatorOrItsBytes)
{
    const Bytes whole = TextBytes("context");
    const std::pair<size_t, const char*> rows[] = {{16, "context"}, {14, "context"}, {15, "context"},
                                                   {4, "co"},       {0, ""},         {16, "context"}};
    for (const auto& [size, text] : rows) {
        // A block of exactly that size, so that the sanitizer sees a read behind it.
        const std::unique_ptr<BYTE[]> bytes(new BYTE[size]);
        std::copy_n(whole.begin(), size, bytes.get());
        EXPECT_EQ(0, table->SetProviderProperty(OpenProvider(), TEXT("Use Context"), bytes.get(),
                                                static_cast<DWORD>(size), NCRYPT_SILENT_FLAG));
        EXPECT_EQ(TextBytes(text), GetKey(0, "Use Context").bytes) << size;
    }
    // A key's ends with its terminator alone, and may have any address.
    const NCRYPT_KEY_HANDLE key = Pending("RSA");
    Bytes odd = Bytes{0xEE} + whole;
    for (const DWORD size : {0, 3, 14, 4000}) {
        EXPECT_EQ(0, SetKey(key, "Use Context", TextBytes("")));
        EXPECT_EQ(0, table->SetKeyProperty(provider, key, TEXT("Use Context"), odd.data() + 1, size, 0));
        EXPECT_EQ(whole, GetKey(key, "Use Context").bytes) << size;
    }
}

// What setting a property does, and whether the value is in the list afterwards.
TEST_F(PropertiesTest, SetPropertiesActAndAreStoredByTheirRules)
{
    enum State { Pends, IsFinal };
    const Bytes one = Words({1}), text = TextBytes("text");
    const Row<const char*, Bytes, DWORD, State, SECURITY_STATUS, bool> rows[] = {
        // Always stored; of another size, which is tested before the state; finalized; flags.
        {"Key Usage", Words({2}), 0, Pends, 0, true},
        {"Key Usage", {1}, 0, Pends, NTE_BAD_DATA, false},
        {"Key Usage", {1}, 0, IsFinal, NTE_BAD_DATA, false},
        {"Key Usage", one, 0, IsFinal, NTE_BAD_KEY_STATE, false},
        {"Key Usage", one, 0x20, Pends, NTE_BAD_FLAGS, false},
        {"Key Usage", one, NCRYPT_SILENT_FLAG, Pends, 0, true},
        {"Key Usage", one, kOnly, IsFinal, 0, true},
        {"Export Policy", Words({0}), 0, IsFinal, NTE_BAD_KEY_STATE, false},
        {"Export Policy", Words({0}), 0, Pends, 0, true},
        // Never stored.
        {"Length", Words({4096}), kPersist, Pends, 0, false},
        {"Length", Words({4096}), 0, IsFinal, NTE_BAD_KEY_STATE, false},
        {"Length", Bytes(5), 0, IsFinal, NTE_BAD_DATA, false},
        {"PRIVATEBLOB", RsaBlob(2048), kPersist, Pends, 0, false},
        {"PRIVATEBLOB", Words({0x31415352}), 0, Pends, NTE_BAD_DATA, false},
        {"PRIVATEBLOB", {0x52, 0x53, 0x41}, 0, Pends, NTE_BAD_DATA, false},
        {"PRIVATEBLOB", one, 0, IsFinal, NTE_BAD_KEY_STATE, false},
        // Stored if asked.
        {"HWND Handle", one, 0, IsFinal, 0, false},
        {"HWND Handle", one, kPersist, IsFinal, 0, true},
        {"UI Policy", one, 0, IsFinal, 0, false},
        {"UI Policy", one, kPersist, IsFinal, 0, true},
        {"Use Context", text, 0, IsFinal, 0, false},
        {"Use Context", text, kPersist, IsFinal, 0, true},
        {"SmartCardKeyCertificate", one, 0, IsFinal, 0, false},
        {"SmartCardKeyCertificate", one, kPersist, IsFinal, 0, true},
        // Unknown, or read only.
        {"smartcardkeycertificate", one, 0, IsFinal, NTE_NOT_SUPPORTED, false},
        {"mine", one, 0, Pends, NTE_NOT_SUPPORTED, false},
        {"mine", one, kPersist, Pends, NTE_NOT_SUPPORTED, false},
        {"mine", one, kOnly, IsFinal, 0, true},
        {"mine", one, kOnly | kPersist, IsFinal, 0, true},
        {"mine", {}, kOnly, IsFinal, 0, true},
        {"Name", text, 0, Pends, NTE_NOT_SUPPORTED, false},
    };
    for (const auto& [property, value, flags, state, status, isStored] : rows) {
        SCOPED_TRACE(testing::Message() << property << " " << flags << " " << state << " " << value.size());
        const NCRYPT_KEY_HANDLE key = Pending("RSA");
        ASSERT_EQ(0, state == IsFinal ? Finalize(key) : 0);
        root.ClearLog();
        EXPECT_EQ(Hex(status), Hex(SetKey(key, property, value, flags)));
        EXPECT_EQ(status ? "KelvaroSetKeyProperty Error " + Hex(status) : "", LastErrorLine());
        const Result stored = GetKey(key, property, kOnly);
        EXPECT_EQ(Hex(isStored ? 0 : NTE_NOT_FOUND), Hex(stored.status));
        ASSERT_EQ(isStored ? 1u : 0u, StoredCount(key));
        if (isStored) {
            EXPECT_EQ(value, stored.bytes);
            const KSP_PROPERTY* const entry = PropertyFromLink(Record(key)->PropertyList.next);
            EXPECT_EQ(1u, entry->fPersisted);
            EXPECT_EQ((flags & kOnly) ? 0u : 1u, entry->fBuildin);
        }
    }
}

TEST_F(PropertiesTest, SetValuesReadBack)
{
    const NCRYPT_KEY_HANDLE key = Pending("RSA");
    const Bytes policy = GetKey(key, "UI Policy").bytes;
    const Row<const char*, Bytes, DWORD, Bytes> rows[] = {
        {"Key Usage", Words({0}), 0, Words({0})},
        {"HWND Handle", {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x08}, 0, Words({0x44332211})},
        {"HWND Handle", {0x11, 0x22}, 0, Words({0x2211})},
        {"Use Context", TextBytes("the first"), 0, TextBytes("the first")},
        {"Use Context", TextBytes("second"), 0, TextBytes("second")},
        {"UI Policy", Bytes(policy.size(), 7), 0, policy},
        {"mine", {1, 2}, kOnly, {1, 2}},
        {"other", {3}, kOnly, {3}},
        {"mine", {4}, kOnly, {4}},
        {"Key Usage", Words({2}), kOnly, Words({2})},
    };
    for (const auto& [property, set, flags, read] : rows) {
        EXPECT_EQ(0, SetKey(key, property, set, flags));
        EXPECT_EQ(read, GetKey(key, property, flags).bytes) << property;
    }
    EXPECT_EQ(Words({0}), GetKey(key, "Key Usage").bytes) << "not the stored value";
    EXPECT_EQ(Bytes{3}, GetKey(key, "other", kOnly).bytes);
    EXPECT_EQ(Hex(NTE_NOT_FOUND), Hex(GetKey(key, "MINE", kOnly).status));
    EXPECT_EQ(3u, StoredCount(key));
    EXPECT_EQ("other", Narrow(PropertyFromLink(Record(key)->PropertyList.next)->szName)) << "new ones are appended";
    for (const DWORD flags : {DWORD{0}, kOnly}) {
        Bytes room(4, 0xEE);
        DWORD size = 0;
        EXPECT_EQ(Hex(NTE_BUFFER_TOO_SMALL),
                  Hex(table->GetKeyProperty(provider, key, TEXT("Key Usage"), room.data(), 3, &size, flags)));
        EXPECT_EQ(4u, size);
        EXPECT_EQ(Bytes(4, 0xEE), room);
    }
}

TEST_F(PropertiesTest, ARefusedLengthIsKept)
{
    const Row<const char*, DWORD, bool> rows[] = {
        {"RSA", 2048, true},       {"RSA", 2056, true},        {"RSA", 4096, true},       {"RSA", 1024, false},
        {"RSA", 2050, false},      {"RSA", 4104, false},       {"ECDH_P384", 384, true},  {"ECDH_P384", 256, false},
        {"ECDSA_P256", 256, true}, {"ECDSA_P256", 264, false}, {"ECDSA_P521", 521, true}, {"ECDSA_P521", 528, false}};
    for (const auto& [algorithm, bits, allowed] : rows) {
        const NCRYPT_KEY_HANDLE key = Pending(algorithm);
        const SECURITY_STATUS status = SetKey(key, "Length", Words({bits}));
        EXPECT_EQ(Hex(allowed ? 0 : NTE_NOT_SUPPORTED), Hex(status)) << algorithm << " " << bits;
        EXPECT_EQ(Words({bits}), GetKey(key, "Length").bytes);
    }
}

TEST_F(PropertiesTest, AnExportPolicyIsCheckedAgainstTheSettingAndAlwaysReadsZero)
{
    const Row<DWORD, DWORD, bool> rows[] = {{0, 0, true},  {0, 1, false}, {0, 0x10, false},
                                            {1, 0, true},  {1, 15, true}, {1, 0x10, false},
                                            {2, 0, false}, {2, 1, false}, {2, 0x10, false}};
    const auto expect = [&](NCRYPT_KEY_HANDLE key, DWORD policy, bool allowed) {
        EXPECT_EQ(Hex(allowed ? 0 : NTE_NOT_SUPPORTED), Hex(SetKey(key, "Export Policy", Words({policy}))));
        EXPECT_EQ(Words({0}), GetKey(key, "Export Policy").bytes);
        EXPECT_EQ(allowed, GetKey(key, "Export Policy", kOnly).status == 0);
    };
    for (const auto& [option, policy, allowed] : rows) {
        SCOPED_TRACE(std::to_string(option) + " " + std::to_string(policy));
        const NCRYPT_KEY_HANDLE key = Pending("RSA");
        Record(key)->kvc->exportableOption = option;
        expect(key, policy, allowed);
    }
    const WithoutClient without(ProviderRecord());
    expect(Pending("RSA"), 0, true);
    expect(Pending("RSA"), 1, false);
}

TEST_F(PropertiesTest, SecurityDescriptorsAreCheckedAndOnlyKept)
{
    const Bytes good = Descriptor();
    const Bytes head(good.begin(), good.begin() + sizeof(SECURITY_DESCRIPTOR_RELATIVE));
    Bytes wrongRevision = good;
    wrongRevision[0] = 2;
    // An owner eight bytes before the end that claims to have twelve.
    Bytes overTheEdge = Descriptor(static_cast<DWORD>(good.size() - 8));
    overTheEdge[good.size() - 8 + offsetof(SID, SubAuthorityCount)] = 1;
    const Row<const char*, Bytes, DWORD, SECURITY_STATUS> rows[] = {
        {"access list kind", good, 4, 0},
        {"longer than needed", good + Bytes{0}, 7, 0},
        {"persist flag alone", good, kPersist, 0},
        {"no flags", good, 0, NTE_BAD_FLAGS},
        {"silent alone", good, NCRYPT_SILENT_FLAG, NTE_BAD_FLAGS},
        {"opaque", good, kOnly | 4, NTE_BAD_FLAGS},
        {"nothing", {}, 4, NTE_BAD_DATA},
        {"head only", head, 4, NTE_BAD_DATA},
        {"a byte short", Bytes(good.begin(), good.end() - 1), 4, NTE_BAD_DATA},
        {"wrong revision", wrongRevision, 4, NTE_BAD_DATA},
        {"owner outside", Descriptor(1u << 30), 4, NTE_BAD_DATA},
        {"owner over the edge", overTheEdge, 4, NTE_BAD_DATA},
    };
    const Bytes read = GetKey(Pending("RSA"), "Security Descr").bytes;
    for (const auto& [name, value, flags, status] : rows) {
        SCOPED_TRACE(name);
        const NCRYPT_KEY_HANDLE key = Pending("RSA");
        ASSERT_EQ(0, Finalize(key));
        EXPECT_EQ(Hex(status), Hex(SetKey(key, "Security Descr", value, flags)));
        const KSP_KEY& record = *Record(key);
        EXPECT_EQ(status ? 0u : flags, record.dwSecurityInfo);
        EXPECT_EQ(status ? Bytes() : value,
                  Bytes(record.pbSecurityDescr, record.pbSecurityDescr + record.cbSecurityDescr));
        EXPECT_EQ(0u, StoredCount(key));
        EXPECT_EQ(read, GetKey(key, "Security Descr").bytes);
    }
}

TEST_F(PropertiesTest, PrivateBlobsAreMeasured)
{
    constexpr DWORD kPrivate = 0x32415352, kFull = 0x33415352;
    // 2048 bits: exponent 3, modulus 256, primes 128: 515 bytes; with exponents and coefficient and modulus 1155.
    const Row<const char*, BCRYPT_RSAKEY_BLOB, size_t, bool> rows[] = {
        {"exact size", {kPrivate, 2048, 3, 256, 128, 128}, 515, true},
        {"with header", {kPrivate, 2048, 3, 256, 128, 128}, 515 + 24, true},
        {"one byte short", {kPrivate, 2048, 3, 256, 128, 128}, 514, false},
        {"full, exact size", {kFull, 2048, 3, 256, 128, 128}, 1155, true},
        {"full, one byte short", {kFull, 2048, 3, 256, 128, 128}, 1154, false},
        {"4096 bits", {kPrivate, 4096, 3, 512, 256, 256}, 1100, true},
        {"2056 bits", {kPrivate, 2056, 3, 257, 129, 129}, 1100, true},
        {"2040 bits", {kPrivate, 2040, 3, 255, 128, 128}, 1155, false},
        {"4104 bits", {kPrivate, 4104, 3, 513, 257, 257}, 1155, false},
        {"2052 bits", {kPrivate, 2052, 3, 257, 129, 129}, 1155, false},
        {"no parts", {kPrivate, 2048, 0, 0, 0, 0}, 24, true},
        {"shorter than its header", {kPrivate, 2048, 0, 0, 0, 0}, 23, false},
        {"sum wraps to 0", {kPrivate, 2048, 0, 0x80000000, 0x80000000, 0}, 1155, false},
        {"double prime wraps", {kFull, 2048, 0, 0, 0x80000000, 0}, 1155, false},
    };
    for (const auto& [name, header, size, good] : rows) {
        SCOPED_TRACE(name);
        const NCRYPT_KEY_HANDLE key = Pending("RSA");
        ASSERT_EQ(0, SetKey(key, "Length", Words({3072})));
        Bytes blob = BytesOf(header);
        blob.resize(size, 0x5A);
        EXPECT_EQ(Hex(good ? 0 : NTE_BAD_KEY), Hex(SetKey(key, "PRIVATEBLOB", blob)));
        EXPECT_EQ(Words({good ? header.BitLength : 3072}), GetKey(key, "Length").bytes);
        EXPECT_EQ(good, Record(key)->pbPrivateKey != nullptr);
        const char* const type = header.Magic == kFull ? "RSAFULLPRIVATEBLOB" : "RSAPRIVATEBLOB";
        EXPECT_TRUE(!good || type == Narrow(Record(key)->pszPrivateBlobType));
    }
}

TEST_F(PropertiesTest, NamingTheCertificateMarksTheKey)
{
    const auto probe = [&](const char* name, DWORD flags) {
        const NCRYPT_KEY_HANDLE key = Pending("RSA");
        root.ClearLog();
        const SECURITY_STATUS status = GetKey(key, name, flags).status;
        return Hex(status) + (Record(key)->publishCert ? " marked" : "") + (ErrorLines().empty() ? "" : " logged");
    };
    EXPECT_EQ(Hex(NTE_NOT_FOUND) + " logged", probe("SmartCardKeyCertificate", kOnly));
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED) + " marked", probe("SmartCardKeyCertificate", 0)) << "a probe is no error";
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED) + " logged", probe("smartcardkeycertificate", 0));
    for (const char* name : {"SmartCardKeyCertificate", "smartcardKEYcertificate"}) {
        const NCRYPT_KEY_HANDLE key = Pending("RSA");
        EXPECT_EQ(Hex(NTE_BAD_FLAGS), Hex(SetKey(key, name, {1}, 0x20)));
        EXPECT_EQ(1u, Record(key)->publishCert);
    }
}

TEST_F(PropertiesTest, TheListsLockIsReleasedAndOptional)
{
    const NCRYPT_KEY_HANDLE key = Pending("RSA");
    const auto use = [&] {
        EXPECT_EQ(0, SetKey(key, "mine", {1}, kOnly));
        EXPECT_EQ(Bytes{1}, GetKey(key, "mine", kOnly).bytes);
        EXPECT_EQ(Hex(NTE_NOT_FOUND), Hex(GetKey(key, "other", kOnly).status));
        const NCRYPT_KEY_HANDLE released = Pending("RSA");
        EXPECT_EQ(0, SetKey(released, "mine", {1}, kOnly));
        FreeKey(released);
    };
    use();
    // Its count would be 2 had someone released the semaphore without acquiring it.
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(KelvaroPropertySemaphore, 0));
    EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(KelvaroPropertySemaphore, 0));
    EXPECT_TRUE(ReleaseSemaphore(KelvaroPropertySemaphore, 1, nullptr));

    const HANDLE semaphore = std::exchange(KelvaroPropertySemaphore, nullptr);
    use();
    KelvaroPropertySemaphore = semaphore;
    for (const char* function : {"KelvaroSetKeyProperty", "KelvaroGetKeyProperty", "DeleteKeyObject"})
        EXPECT_TRUE(root.Logged(std::string(function) + " Failed to grab Semaphone - Result Error 0xffffffff", 4));
}

// Traced before any test, so for refused calls too.
TEST_F(PropertiesTest, ValuesAreTracedByTheKindOfTheirName)
{
    const NCRYPT_KEY_HANDLE key = Pending("RSA");
    const Row<const char*, Bytes, const char*> rows[] = {
        {"Length", Words({3072}), "3072"},
        {"LENGTH", {1, 2}, "-1"},
        {"Enabled Use Count", {}, "-1"},
        {"SmartCardReader", TextBytes("reader"), "reader"},
        {"Use Context", TextBytes("ended") + TextBytes("and more"), "ended"},
        {"SmartCardPin", TextBytes("unended", false), "unended"},
        {"Name", {}, "(NULL)"},
        {"mine", TextBytes("opaque"), "(NULL)"},
    };
    Lines expected;
    for (const auto& [property, value, traced] : rows) {
        table->SetKeyProperty(provider, key, Wide(property).c_str(), const_cast<BYTE*>(value.data()),
                              static_cast<DWORD>(value.size()), 0);
        expected.push_back(std::string("KelvaroSetKeyProperty ") + property + " " + traced);
    }
    table->SetKeyProperty(provider, key, nullptr, nullptr, 0, 0);
    for (const char* property : {"Length", "Algorithm Name", "Lengths"})
        GetKey(key, property);
    GetKey(0, "Version");
    SetKey(0, "Use Context", TextBytes("co"));
    for (const char* line : {"KelvaroSetKeyProperty (NULL) (NULL)", "KelvaroGetKeyProperty Length 3072",
                             "KelvaroGetKeyProperty Algorithm Name RSA", "KelvaroGetKeyProperty Lengths (NULL)",
                             "KelvaroGetProviderProperty Version 65536", "KelvaroSetProviderProperty Use Context co"})
        expected.push_back(line);
    for (const std::string& line : expected)
        EXPECT_TRUE(root.Logged(line, 10)) << line;
}

}  // namespace
