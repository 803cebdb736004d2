// Properties of keys and of the provider, as hosts read and set them.
#include <map>
#include <memory>

#include "provider/property_list.h"
#include "tests/provider/provider_fixture.h"
#include "tests/provider/words.h"

namespace {

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
    const NCRYPT_KEY_HANDLE opened = OpenAnswered(CurveAnswer("P-256K", Pattern(32), Pattern(32)));
    const NCRYPT_KEY_HANDLE rsa = Pending("RSA");
    const std::map<std::string, NCRYPT_KEY_HANDLE> handles = {{"provider", 0},
                                                              {"opened", opened},
                                                              {"rsa", rsa},
                                                              {"p256", Pending("ECDSA_P256")},
                                                              {"p384", Pending("ECDH_P384")},
                                                              {"curve", Pending("ECDSA_P521", "signing key", 0)}};
    for (const auto& row : SectionRows("properties.txt")) {
        SCOPED_TRACE(row[0] + " " + row[1]);
        const Result answer = GetKey(handles.at(row[0]), row[1].substr(1));
        const Bytes value = BytesOfWord(row[2]);
        EXPECT_EQ(Hex(value.empty() ? NTE_NOT_SUPPORTED : 0), Hex(answer.status));
        EXPECT_EQ(value, answer.bytes);
    }
    SECURITY_DESCRIPTOR noSecurity = {};
    ASSERT_TRUE(InitializeSecurityDescriptor(&noSecurity, SECURITY_DESCRIPTOR_REVISION));
    EXPECT_EQ(BytesOf(noSecurity), GetKey(rsa, "Security Descr").bytes);
    const Bytes policy = BytesOf(NCRYPT_UI_POLICY{1, 0, nullptr, nullptr, nullptr});
    EXPECT_EQ(policy, GetKey(rsa, "UI Policy").bytes);
    EXPECT_EQ(0, SetKey(rsa, "UI Policy", Bytes(policy.size(), 7)));
    EXPECT_EQ(policy, GetKey(rsa, "UI Policy").bytes) << "not the value that was set";
    const Result noLengths = GetKey(opened, "Lengths");
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Hex(noLengths.status));
    EXPECT_EQ(16u, noLengths.needed) << "the size is known";
    EXPECT_EQ(Words({2048}), GetKey(rsa, "Length", 0xBFFFFFFF).bytes) << "other flags";
}

// Contexts with and without their terminator, with half of it, and so on.
TEST_F(PropertiesTest, AContextEndsWithItsTerminatorOrItsBytes)
{
    const Bytes whole = TextBytes("context");
    const std::pair<size_t, const char*> rows[] = {{16, "context"}, {14, "context"}, {15, "context"},
                                                   {4, "co"},       {0, ""},         {16, "context"}};
    for (const auto& [size, text] : rows) {
        // A block of exactly that size, so that the sanitizer sees a read past it.
        const std::unique_ptr<BYTE[]> bytes(new BYTE[size]);
        std::copy_n(whole.begin(), size, bytes.get());
        EXPECT_EQ(0, table->SetProviderProperty(OpenProvider(), TEXT("Use Context"), bytes.get(),
                                                static_cast<DWORD>(size), NCRYPT_SILENT_FLAG));
        EXPECT_EQ(TextBytes(text), GetKey(0, "Use Context").bytes) << size;
    }
    // A key's context ends only at its terminator, and may have any address.
    const NCRYPT_KEY_HANDLE key = Pending("RSA");
    Bytes odd = Bytes{0xEE} + whole;
    for (const DWORD size : {0, 3, 14, 4000}) {
        EXPECT_EQ(0, SetKey(key, "Use Context", TextBytes("")));
        EXPECT_EQ(0, table->SetKeyProperty(provider, key, TEXT("Use Context"), odd.data() + 1, size, 0));
        EXPECT_EQ(whole, GetKey(key, "Use Context").bytes) << size;
    }
}

TEST_F(PropertiesTest, SetPropertiesActAndAreStoredByTheirRules)
{
    for (const auto& row : SectionRows("properties.txt")) {
        SCOPED_TRACE(testing::PrintToString(row));
        const SECURITY_STATUS status = StatusOfWord(row[0]);
        const bool isStored = row[1] == "stored";
        const std::string property = row[3].substr(1);
        const Bytes value = BytesOfWord(row[4]);
        const DWORD flags = NumberOfWord(row[5]);
        const NCRYPT_KEY_HANDLE key = Pending("RSA");
        ASSERT_EQ(0, row[2] == "final" ? Finalize(key) : 0);
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
    for (const auto& row : SectionRows("properties.txt")) {
        SCOPED_TRACE(testing::PrintToString(row));
        EXPECT_EQ(0, SetKey(key, row[0].substr(1), BytesOfWord(row[1]), NumberOfWord(row[2])));
        EXPECT_EQ(BytesOfWord(row[3]), GetKey(key, row[0].substr(1), NumberOfWord(row[2])).bytes);
    }
    EXPECT_EQ(Words({0}), GetKey(key, "Key Usage").bytes) << "not the stored value";
    EXPECT_EQ(Bytes{3}, GetKey(key, "other", kOnly).bytes);
    EXPECT_EQ(Hex(NTE_NOT_FOUND), Hex(GetKey(key, "MINE", kOnly).status));
    EXPECT_EQ(3u, StoredCount(key));
    EXPECT_EQ("other", Narrow(PropertyFromLink(Record(key)->PropertyList.next)->szName)) << "new ones are appended";
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
    const Bytes read = GetKey(Pending("RSA"), "Security Descr").bytes;
    for (const auto& row : SectionRows("properties.txt")) {
        SCOPED_TRACE(testing::PrintToString(row));
        const SECURITY_STATUS status = StatusOfWord(row[0]);
        const DWORD flags = NumberOfWord(row[1]);
        const Bytes value = BytesOfWord(row[2]);
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
    for (const auto& row : SectionRows("properties.txt")) {
        SCOPED_TRACE(testing::PrintToString(row));
        const SECURITY_STATUS status = StatusOfWord(row[0]);
        const NCRYPT_KEY_HANDLE key = Pending("RSA");
        ASSERT_EQ(0, SetKey(key, "Length", Words({3072})));
        Bytes blob = BytesOfWord(row[1]);
        const Bytes bits(blob.begin() + 4, blob.begin() + 8);
        blob.resize(std::stoul(row[2]), 0x5A);
        EXPECT_EQ(Hex(status), Hex(SetKey(key, "PRIVATEBLOB", blob)));
        EXPECT_EQ(status ? Words({3072}) : bits, GetKey(key, "Length").bytes);
        EXPECT_EQ(status == 0, Record(key)->pbPrivateKey != nullptr);
        const char* const type = blob[3] == '3' ? "RSAFULLPRIVATEBLOB" : "RSAPRIVATEBLOB";
        EXPECT_TRUE(status || type == Narrow(Record(key)->pszPrivateBlobType));
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
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED) + " marked", probe("SmartCardKeyCertificate", 0)) << "a probe isn't an error";
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
    // If the semaphore was released without being acquired, its count is 2.
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
    table->SetKeyProperty(provider, key, nullptr, nullptr, 0, 0);
    table->SetKeyProperty(provider, key, TEXT("Name"), nullptr, 0, 0);
    for (const char* line : {"KelvaroSetKeyProperty (NULL) (NULL)", "KelvaroSetKeyProperty Name (NULL)"})
        EXPECT_TRUE(root.Logged(line, 10)) << line;
    for (const auto& row : SectionRows("properties.txt")) {
        const NCRYPT_KEY_HANDLE of = row[1] == "Key" ? key : 0;
        const std::string name = row[2].substr(1);
        if (row[0] == "Get")
            GetKey(of, name);
        else
            SetKey(of, name, BytesOfWord(row[3]));
        const std::string line = "Kelvaro" + row[0] + row[1] + "Property " + name + " " + row.back();
        EXPECT_TRUE(root.Logged(line, 10)) << line;
    }
}

}  // namespace
