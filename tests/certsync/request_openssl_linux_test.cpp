// Certificate requests as the openssl program reads them.
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

class OpensslRequestTest : public CtlTest {
  protected:
    // Returns what openssl prints for the request that the command writes. The request's signature must be valid.
    std::string Shown(const std::vector<std::string>& options, const std::vector<std::string>& display)
    {
        std::vector<std::string> arguments = {"keys", "request", "key", "--out", File("request"), "--der"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        Out(arguments);
        arguments = {"req", "-in", File("request"), "-inform", "DER", "-verify", "-noout"};
        arguments.insert(arguments.end(), display.begin(), display.end());
        const Ran ran = RunProgram("/usr/bin/openssl", arguments, "");
        EXPECT_NE(std::string::npos, ran.err.find("verify OK")) << ran.err;
        return ran.out;
    }
};

TEST_F(OpensslRequestTest, EveryKindOfKeySignsItsRequest)
{
    const std::pair<const char*, const char*> rows[] = {{"RSA", "sha256WithRSAEncryption"},
                                                        {"P-256", "ecdsa-with-SHA256"},
                                                        {"P-384", "ecdsa-with-SHA384"},
                                                        {"P-521", "ecdsa-with-SHA512"}};
    for (const auto& [kind, algorithm] : rows) {
        SCOPED_TRACE(kind);
        sim.Reset();
        AddKey("key", kind);
        const std::string shown = Shown({"--subject", "CN=web01"}, {"-pubkey", "-text"});
        EXPECT_NE(std::string::npos, shown.find(sim.PublicKeyPem(Simulator::kVault, "key")));
        EXPECT_NE(std::string::npos, shown.find(std::string("Signature Algorithm: ") + algorithm));
    }
}

TEST_F(OpensslRequestTest, SubjectAndAlternativeNames)
{
    AddKey("key", "P-256");
    const std::string both = Shown(
        {"--subject", "CN=web01, O=\"Acme, Inc.\", L=K\xC3\xB6ln, C=DE", "--san", "dns:web01.contoso.com,ip:10.0.0.1",
         "--san", "email:ops@contoso.com", "--san=uri:https://contoso.com/", "--san", "ip:2001:db8::1"},
        {"-text", "-nameopt", "utf8,sep_comma_plus_space,sname"});
    EXPECT_NE(std::string::npos, both.find("Subject: CN=web01, O=Acme, Inc., L=K\xC3\xB6ln, C=DE")) << both;
    EXPECT_NE(std::string::npos, both.find("DNS:web01.contoso.com, IP Address:10.0.0.1, email:ops@contoso.com, "
                                           "URI:https://contoso.com/, IP Address:2001:DB8:0:0:0:0:0:1"))
        << both;
    EXPECT_EQ(std::string::npos, both.find("Alternative Name: critical"));
    const std::string namesAlone = Shown({"--san", "dns:web01.contoso.com"}, {"-text"});
    EXPECT_NE(std::string::npos, namesAlone.find("Alternative Name: critical")) << namesAlone;

    const nlohmann::json answer = CtlJson({"keys", "request", "key", "--san", "dns:web01.contoso.com"});
    EXPECT_EQ("P-256", answer["key"]);
    EXPECT_EQ(0u, answer["pem"].get<std::string>().find("-----BEGIN CERTIFICATE REQUEST-----\n"));
}

}  // namespace
