// Alternative names from the command line.
#include "kelvaroctl/certificate_request.h"

#include <gtest/gtest.h>

#include <sstream>

#include "kelvaroctl/failure.h"
#include "tests/common/row.h"

using kelvaroctl::HexText;
using kelvaroctl::ParseSubjectAltName;

TEST(SubjectAltNameTest, EveryForm)
{
    // An address as the hexadecimal text of its bytes.
    const Row<const char*, int, std::string> rows[] = {
        {"dns:web01.contoso.com", 0x82, "web01.contoso.com"},
        {"DNS:*.contoso.com", 0x82, "*.contoso.com"},
        {"email:ops@contoso.com", 0x81, "ops@contoso.com"},
        {"uri:https://contoso.com:8443/a?b", 0x86, "https://contoso.com:8443/a?b"},
        {"ip:10.0.0.255", 0x87, "0a0000ff"},
        {"IP:2001:db8::1", 0x87, "20010db8000000000000000000000001"},
        {"ip:::", 0x87, "00000000000000000000000000000000"},
        {"ip:fe80::", 0x87, "fe800000000000000000000000000000"},
        {"ip:1:2:3:4:5:6:7:8", 0x87, "00010002000300040005000600070008"},
        {"ip:::ffff:10.1.2.3", 0x87, "00000000000000000000ffff0a010203"},
        {"ip:ABCD::1:2:3:4:5:6", 0x87, "abcd0000000100020003000400050006"},
    };
    for (const auto& [text, tag, content] : rows) {
        const kelvaroctl::SubjectAltName name = ParseSubjectAltName(text);
        EXPECT_EQ(tag, name.tag) << text;
        EXPECT_EQ(content, tag == 0x87 ? HexText(name.content) : std::string(name.content.begin(), name.content.end()));
    }
}

TEST(SubjectAltNameTest, BadNamesAreRefused)
{
    std::istringstream texts(
        "\nweb01\nhost:web01\ndns:\ndns:a b\ndns:b\xC3\xBC"
        "cher.example\n"
        "email:\nemail:ops\nemail:@x\nemail:a@b@c\nemail:a@\nuri:\nip:\nip:10.0.0\n"
        "ip:10.0.0.256\nip:10.0.0.0.1\nip:10.0.0.1a\nip:1:2:3:4:5:6:7\nip:1:2:3:4:5:6:7:8:9\n"
        "ip:1::2::3\nip:1:2:3:4:5:6:7::8\nip:12345::\nip:10.0.0.1::1\nip::1:2\nip:g::");
    for (std::string text; std::getline(texts, text);)
        EXPECT_THROW(ParseSubjectAltName(text), kelvaroctl::Failure) << text;
}
