// Certificate requests of vault keys.
#include "tests/common/independent_key.h"
#include "tests/common/row.h"
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

using nlohmann::json;

class RequestCommandTest : public CtlTest {
  protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        sim.AddKey(Simulator::kVault, {{"name", "rsa"}, {"kty", "RSA"}, {"size", 3072}});
        for (const char* curve : {"256", "384", "521"}) {
            sim.AddKey(Simulator::kVault,
                       {{"name", std::string("p") + curve}, {"kty", "EC"}, {"crv", std::string("P-") + curve}});
        }
    }
    // Whether the key's request is signed by it, as others see it. algorithm: the object identifier in DER.
    void ExpectSigned(const std::string& name, const std::string& algorithm, const std::string& hash)
    {
        SCOPED_TRACE(name);
        const IndependentKey key(sim.PublicKeyPem(Simulator::kVault, name));
        const SignatureForm form = name == "rsa" ? SignatureForm::Plain : SignatureForm::Der;
        std::vector<std::string> parts;
        std::string signature;
        do {
            Out({"keys", "request", name, "--subject", "CN=web01", "--out", File("req.der"), "--der"});
            parts = Members(ReadFile(File("req.der")));
            ASSERT_EQ(3u, parts.size());
            signature = parts[2].substr(HeadSize(parts[2]) + 1);  // behind the unused bits
        } while (!key.CanTellOf(signature, form));
        EXPECT_NE(std::string::npos, parts[0].find(key.Der()));
        EXPECT_EQ(algorithm, Members(parts[1])[0].substr(2));
        EXPECT_TRUE(key.Verifies(Digest(parts[0], hash), signature, hash, form));
    }
    static size_t HeadSize(const std::string& der)
    {
        const auto length = static_cast<unsigned char>(der.at(1));
        return length < 0x80 ? 2 : 2u + (length & 0x7F);
    }
    // The elements of a sequence, each with its head.
    static std::vector<std::string> Members(const std::string& der)
    {
        std::vector<std::string> members;
        for (std::string rest = der.substr(HeadSize(der)); !rest.empty();) {
            const size_t head = HeadSize(rest);
            size_t size = head == 2 ? static_cast<unsigned char>(rest[1]) : 0;
            for (size_t at = 2; at < head; ++at)
                size = size << 8 | static_cast<unsigned char>(rest.at(at));
            members.push_back(rest.substr(0, head + size));
            rest.erase(0, head + size);
        }
        return members;
    }
};

TEST_F(RequestCommandTest, EveryKindOfKeySignsARequest)
{
    ExpectSigned("rsa", "\x2A\x86\x48\x86\xF7\x0D\x01\x01\x0B", "SHA256");
    ExpectSigned("p256", "\x2A\x86\x48\xCE\x3D\x04\x03\x02", "SHA256");
    ExpectSigned("p384", "\x2A\x86\x48\xCE\x3D\x04\x03\x03", "SHA384");
}

TEST_F(RequestCommandTest, AKeyOnP521SignsARequest)
{
    ExpectSigned("p521", "\x2A\x86\x48\xCE\x3D\x04\x03\x04", "SHA512");
}

TEST_F(RequestCommandTest, LettersBeyondAsciiGoOutAsUtf8)
{
    Out({"keys", "request", "p256", "--subject", "CN=web01, L=K\xC3\xB6ln", "--out", File("req.der"), "--der"});
    EXPECT_NE(std::string::npos, ReadFile(File("req.der")).find("\x0C\x05K\xC3\xB6ln"));
}

TEST_F(RequestCommandTest, WhatCannotBeRequested)
{
    const Row<const char*, std::vector<std::string>, int, const char*> rows[] = {
        {"no subject at all", {"rsa"}, 2, "--subject or a --san"},
        {"a bad subject", {"rsa", "--subject", "web01"}, 2, "not a valid subject: 'web01'"},
        {"a bad name", {"rsa", "--subject", "CN=a", "--san", "web01"}, 2, "dns:NAME"},
        {"DER on the terminal", {"rsa", "--subject", "CN=a", "--der"}, 2, "--out"},
        {"no such key", {"nobody", "--subject", "CN=a"}, 5, "'nobody'"},
    };
    for (const auto& [name, rest, exit, words] : rows) {
        SCOPED_TRACE(name);
        std::vector<std::string> arguments = {"keys", "request"};
        arguments.insert(arguments.end(), rest.begin(), rest.end());
        const std::string message = CtlJson(arguments, exit)["error"]["message"];
        EXPECT_NE(std::string::npos, message.find(words)) << message;
    }
    sim.Fault({{"path", "/sign"}, {"action", "status"}, {"status", 403}});
    EXPECT_EQ(6, Ctl({"keys", "request", "rsa", "--subject", "CN=a"}).exit);
}

}  // namespace
