#include "platform/linux/der.h"
#include "tests/common/row.h"
#include "tests/platform/platform_root.h"

namespace {

using std::string_literals::operator""s;

constexpr DWORD kX500 = CERT_X500_NAME_STR;

const std::string kCommonName("\x55\x04\x03");

// objectId: the content of its DER form. more: further sequences of the set.
std::string Part(const std::string& objectId, BYTE tag, const std::string& value, const std::string& more = "")
{
    return MakeDer(kDerSet, MakeDer(kDerSequence, MakeDer(kDerObjectId, objectId) + MakeDer(tag, value)) + more);
}

std::string CommonName(BYTE tag, const std::string& value)
{
    return Part(kCommonName, tag, value);
}

std::string TextOf(const std::string& name, DWORD strType)
{
    CERT_NAME_BLOB blob = {SizeOf(name), BytesOf(name)};
    const DWORD room = CertNameToStrW(X509_ASN_ENCODING, &blob, strType, nullptr, 0);
    std::u16string text(room, u'?');
    EXPECT_EQ(CertNameToStrW(X509_ASN_ENCODING, &blob, strType, text.data(), room), room);
    EXPECT_EQ(text.back(), u'\0');
    text.pop_back();
    return ToUtf8(text);
}

// The name's bytes, or "error N at M" in hexadecimal.
std::string NameOf(const std::string& text, DWORD strType)
{
    BYTE name[512];
    DWORD size = sizeof name;
    LPCSTR errorAt = nullptr;
    if (CertStrToNameA(X509_ASN_ENCODING, text.c_str(), strType, nullptr, name, &size, &errorAt))
        return HexText(name, size);
    return ErrorText() + " at " + std::to_string(errorAt - text.c_str());
}

}  // namespace

TEST(CertificateNames, ANameIsWrittenAsWindowsWritesIt)
{
    const std::string utf8Name = CommonName(kDerUtf8String, "web01");
    const std::string organisation = Part("\x55\x04\x0A", kDerPrintableString, "Acme, Inc.");
    // The sequence's content, and the two forms.
    const Row<const char*, std::string, const char*, const char*> rows[] = {
        {"empty", "", "", ""},
        {"comma", utf8Name + organisation, "web01, \"Acme, Inc.\"", "CN=web01, O=\"Acme, Inc.\""},
        {"several values",  // two bytes are the set's head
         Part(kCommonName, kDerPrintableString, "a", Part("\x55\x04\x05", kDerPrintableString, "1").substr(2)), "a + 1",
         "CN=a + SERIALNUMBER=1"},
        {"leading blank", CommonName(kDerUtf8String, " a"), "\" a\"", "CN=\" a\""},
        {"number sign", CommonName(kDerUtf8String, "a#b"), "\"a#b\"", "CN=\"a#b\""},
        {"empty value", CommonName(kDerUtf8String, ""), "\"\"", "CN=\"\""},
        {"IA5", CommonName(kDerIa5String, "\xE4"), "ä", "CN=ä"},
        {"T61 as Latin-1", CommonName(kDerT61String, "\xE4"), "ä", "CN=ä"},
        {"BMP", CommonName(kDerBmpString, "\x04\x36\x00\x61"s), "жa", "CN=жa"},
        {"universal", CommonName(kDerUniversalString, "\x00\x01\xF6\x00"s), "😀", "CN=😀"},
        {"octets", CommonName(kDerOctetString, "\x01\xAB"), "#01AB", "CN=#01AB"},
        {"number", CommonName(kDerInteger, "\x05"), "#020105", "CN=#020105"},
        {"unknown type", Part("\x2A\x03\x04", kDerUtf8String, "x"), "x", "OID.1.2.3.4=x"},
        {"mail, state, domain",
         Part("\x2A\x86\x48\x86\xF7\x0D\x01\x09\x01", kDerIa5String, "a@b") +
             Part("\x55\x04\x08", kDerUtf8String, "WA") +
             Part("\x09\x92\x26\x89\x93\xF2\x2C\x64\x01\x19", kDerIa5String, "corp"),
         "a@b, WA, corp", "E=a@b, S=WA, DC=corp"},
    };
    for (const auto& [what, parts, simple, x500] : rows) {
        const std::string name = MakeDer(kDerSequence, parts);
        EXPECT_EQ(TextOf(name, CERT_SIMPLE_NAME_STR), simple) << what;
        EXPECT_EQ(TextOf(name, kX500), x500) << what;
    }
}

TEST(CertificateNames, ATextIsCutToFitAndABadNameIsEmpty)
{
    std::string name = MakeDer(kDerSequence, CommonName(kDerUtf8String, "web01"));
    CERT_NAME_BLOB blob = {SizeOf(name), BytesOf(name)};
    WCHAR text[8] = u"???????";
    EXPECT_EQ(CertNameToStrW(X509_ASN_ENCODING, &blob, kX500, text, 5), 5u);
    EXPECT_EQ(std::u16string(text, 6), u"CN=w\0?"s);
    blob.cbData--;
    EXPECT_EQ(CertNameToStrW(X509_ASN_ENCODING, &blob, kX500, text, 8), 1u);
    EXPECT_EQ(text[0], 0);
    EXPECT_EQ(GetLastError(), DWORD(CRYPT_E_ASN1_EOD));
}

TEST(CertificateNames, ATextBecomesAName)
{
    // The last is the name as a text again, or the failure.
    const Row<const char*, DWORD, const char*> rows[] = {
        {"", 0, ""},
        {" cn = web01 ;o=\"Acme, Inc.\"", 0, "CN=web01, O=\"Acme, Inc.\""},
        {"CN=a\"b", 0, "error 80092023 at 3"},
        {"CN=\"a\"\"b\"", 0, "CN=\"a\"\"b\""},
        {"CN=\"a\" b", 0, "error 80092023 at 3"},
        {"CN=ä, XX=b", 0, "error 80092023 at 7"},
        {"CN", 0, "error 80092023 at 0"},
        {"E=ä@b", 0, "error 80092022 at 2"},
        {"CN=a+SERIALNUMBER=2, ST=b", 0, "CN=a + SERIALNUMBER=2, S=b"},
        {"OID.2.5.4.3=a,1.2.3.4=b", 0, "CN=a, OID.1.2.3.4=b"},
        {"CN=ж😀", CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG, "CN=ж😀"},
        {"CN=#01ab", 0, "CN=#01AB"},
    };
    for (const auto& [text, flags, written] : rows) {
        std::string name = NameOf(text, kX500 | flags);
        if (name.compare(0, 5, "error") != 0) {
            BYTE encoded[512];
            DWORD size = sizeof encoded;
            ASSERT_TRUE(CertStrToNameW(X509_ASN_ENCODING, ToUtf16(text).c_str(), kX500 | flags, nullptr, encoded, &size,
                                       nullptr));
            EXPECT_EQ(HexText(encoded, size), name) << text;
            name = TextOf(std::string(reinterpret_cast<char*>(encoded), size), kX500);
        }
        EXPECT_EQ(name, written) << text;
    }
    // The string types that Windows chooses.
    EXPECT_EQ(NameOf("CN=Ab", kX500), "300D310B3009060355040313024162");
    EXPECT_EQ(NameOf("CN=A_", kX500), "300F310D300B06035504031E040041005F");
    EXPECT_EQ(NameOf("CN=A_", kX500 | CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG), "300D310B300906035504030C02415F");
    EXPECT_EQ(NameOf("DC=ab", kX500), "301431123010060A0992268993F22C64011916026162");
}
