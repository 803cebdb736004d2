// Certificate requests as the openssl program reads them.
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

class OpensslRequestTest : public CtlTest {
  protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        sim.AddKey(Simulator::kVault, {{"name", "p256"}, {"kty", "EC"}, {"crv", "P-256"}});
    }
    Ran Openssl(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "req");
        return RunProgram("/usr/bin/openssl", arguments, "");
    }
};

TEST_F(OpensslRequestTest, SubjectAndNamesAreThoseOfTheCommandLine)
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

TEST_F(OpensslRequestTest, NamesAloneAreCritical)
{
    const nlohmann::json answer = CtlJson({"keys", "request", "p256", "--san", "dns:web01.contoso.com"});
    EXPECT_EQ("P-256", answer["key"]);
    WriteFile("req.pem", answer["pem"]);
    const Ran shown = Openssl({"-in", File("req.pem"), "-verify", "-noout", "-text"});
    EXPECT_EQ(0, shown.exit);
    EXPECT_NE(std::string::npos, shown.out.find("Alternative Name: critical")) << shown.out;
}

}  // namespace
