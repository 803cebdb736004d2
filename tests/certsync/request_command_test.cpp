// Certificate requests of vault keys, judged by openssl.
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
    // What openssl says of the request; fails the test when it does not accept the signature.
    Ran Openssl(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "req");
        return RunProgram("/usr/bin/openssl", arguments, "");
    }
};

TEST_F(RequestCommandTest, EveryKindOfKeySignsARequest)
{
    const struct {
        const char* key;
        const char* algorithm;
    } rows[] = {{"rsa", "sha256WithRSAEncryption"},
                {"p256", "ecdsa-with-SHA256"},
                {"p384", "ecdsa-with-SHA384"},
                {"p521", "ecdsa-with-SHA512"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key);
        Out({"keys", "request", row.key, "--subject", "CN=web01", "--out", File("req.pem")});
        const Ran checked = Openssl({"-in", File("req.pem"), "-verify", "-noout", "-text"});
        EXPECT_EQ(0, checked.exit) << checked.err;
        EXPECT_NE(std::string::npos, (checked.out + checked.err).find("verify OK"));
        EXPECT_NE(std::string::npos, checked.out.find(std::string("Signature Algorithm: ") + row.algorithm));
        EXPECT_EQ(sim.PublicKeyPem(Simulator::kVault, row.key),
                  Openssl({"-in", File("req.pem"), "-pubkey", "-noout"}).out);
    }
}

TEST_F(RequestCommandTest, SubjectAndNamesAreThoseOfTheCommandLine)
{
    Out({"keys", "request", "p256", "--subject", "CN=web01, O=\"Acme, Inc.\", L=K\xC3\xB6ln, C=DE", "--san",
         "dns:web01.contoso.com,ip:10.0.0.1", "--san", "email:ops@contoso.com", "--san=uri:https://contoso.com/",
         "--san", "ip:2001:db8::1", "--out", File("req.der"), "--der"});
    const Ran shown = Openssl({"-in", File("req.der"), "-inform", "DER", "-verify", "-noout", "-text", "-nameopt",
                               "utf8,sep_comma_plus_space,sname"});
    EXPECT_NE(std::string::npos, shown.out.find("Subject: CN=web01, O=Acme, Inc., L=K\xC3\xB6ln, C=DE")) << shown.out;
    EXPECT_NE(std::string::npos, shown.out.find("DNS:web01.contoso.com, IP Address:10.0.0.1, email:ops@contoso.com, "
                                                "URI:https://contoso.com/, IP Address:2001:DB8:0:0:0:0:0:1"))
        << shown.out;
    EXPECT_EQ(std::string::npos, shown.out.find("Alternative Name: critical"));
}

TEST_F(RequestCommandTest, NamesAloneAreCritical)
{
    const json answer = CtlJson({"keys", "request", "rsa", "--san", "dns:web01.contoso.com"});
    EXPECT_EQ("RSA 3072", answer["key"]);
    WriteFile("req.pem", answer["pem"]);
    const Ran shown = Openssl({"-in", File("req.pem"), "-verify", "-noout", "-text"});
    EXPECT_EQ(0, shown.exit);
    EXPECT_NE(std::string::npos, shown.out.find("Alternative Name: critical")) << shown.out;
}

TEST_F(RequestCommandTest, WhatCannotBeRequested)
{
    const struct {
        const char* name;
        std::vector<std::string> arguments;
        int exit;
        const char* words;
    } rows[] = {
        {"no subject at all", {"rsa"}, 2, "--subject or a --san"},
        {"a bad subject", {"rsa", "--subject", "web01"}, 2, "no name of a subject"},
        {"a bad name", {"rsa", "--subject", "CN=a", "--san", "web01"}, 2, "dns:NAME"},
        {"DER on the terminal", {"rsa", "--subject", "CN=a", "--der"}, 2, "--out"},
        {"no such key", {"nobody", "--subject", "CN=a"}, 5, "'nobody'"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<std::string> arguments = {"keys", "request"};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        const std::string message = CtlJson(arguments, row.exit)["error"]["message"];
        EXPECT_NE(std::string::npos, message.find(row.words)) << message;
    }
    sim.Fault({{"path", "/sign"}, {"action", "status"}, {"status", 403}});
    EXPECT_EQ(6, Ctl({"keys", "request", "rsa", "--subject", "CN=a"}).exit);
}

}  // namespace
