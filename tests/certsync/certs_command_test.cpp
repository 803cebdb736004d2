// certs list, install, publish and sync, as an administrator runs them.
#include <map>
#include <thread>

#include "tests/certsync/certs_fixture.h"
#include "tests/common/independent_key.h"
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

using nlohmann::json;

class CertsCommandTest : public CtlTest {
  protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        for (const HKEY hive : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER})
            root.SetNumber(hive, "CertificatesOrKeys", 0);
        ClearStores();  // those of Windows outlive a test
    }
    void TearDown() override { ClearStores(); }

    json Vault(const std::string& rest, const json& body)
    {
        return sim.Control("POST", std::string("/vaults/") + Simulator::kVault + rest, body);
    }
    void AddCertificate(const std::string& name, const std::string& subject = "CN=web01")
    {
        Vault("/certificates", {{"name", name}, {"kty", "EC"}, {"crv", "P-256"}, {"subject", subject}});
    }
    json Issue(const json& spec) { return Vault("/issue", spec); }
    std::string MachineText(const std::string& name) const { return root.GetText(HKEY_LOCAL_MACHINE, name); }
    bool HasRequest(const std::string& request)
    {
        for (const std::string& made : sim.VaultRequests()) {
            if (made.find(request) == 0)
                return true;
        }
        return false;
    }
    // Of the machine store.
    json List() { return CtlJson({"certs", "list"})["certificates"]; }
    // So that no command brings anything by the way.
    void HoldSync() { root.SetNumber(HKEY_LOCAL_MACHINE, "FromKVLastSyncTime", 0xFFFFFFFF); }
};

TEST_F(CertsCommandTest, SyncBringsWhatIsNewNow)
{
    // The simulator reads names as the service does, from the end.
    AddCertificate("web", "O=\"Acme, Inc.\", CN=web01");
    AddCertificate("dummy", "CN=Dummy Certificate Name");
    HoldSync();  // the rule of twenty minutes is not for an administrator
    json answer = CtlJson({"certs", "sync"});
    ASSERT_EQ(1u, answer["added"].size());
    EXPECT_EQ("web", answer["added"][0]["container"]);
    EXPECT_EQ("CN=web01, O=\"Acme, Inc.\"", answer["added"][0]["subject"]);
    EXPECT_EQ(2, answer["recorded"]);
    json listed = List();
    ASSERT_EQ(1u, listed.size());
    // A day may end between the two commands.
    listed[0]["daysLeft"] = answer["added"][0]["daysLeft"] = nullptr;
    EXPECT_EQ(answer["added"][0], listed[0]);
    EXPECT_EQ(true, listed[0]["bound"]);
    EXPECT_EQ(true, listed[0]["inStep"]);
    EXPECT_EQ("Zandrel Key Storage Provider for Key Vault", listed[0]["provider"]);
    EXPECT_EQ(20u, listed[0]["notAfter"].get<std::string>().size());
    EXPECT_NE(std::string::npos, MachineText("CertSync").find(listed[0]["thumbprint"].get<std::string>()));

    const std::string record = MachineText("CertSync");
    EXPECT_NE(std::string::npos, Out({"certs", "sync"}).find("nothing new"));
    EXPECT_EQ(record.size(), MachineText("CertSync").size());
    // A list that was refused isn't one without news.
    sim.Fault({{"path", "/certificates?"}, {"action", "status"}, {"status", 403}, {"times", -1}});
    EXPECT_EQ("not_listed", CtlJson({"certs", "sync"}, 6)["error"]["code"]);
    EXPECT_EQ(record.size(), MachineText("CertSync").size());
    sim.Control("DELETE", "/faults");
    AddCertificate("later", "CN=later");
    EXPECT_NE(std::string::npos, Out({"certs", "sync"}).find("bound to 'later'"));
}

TEST_F(CertsCommandTest, WhereASyncCannotBe)
{
    EXPECT_EQ(2, Ctl({"certs", "sync", "--user"}).exit);
    sim.Fault({{"path", "/oauth2/token"}, {"action", "status"}, {"status", 401}});
    EXPECT_EQ(4, Ctl({"certs", "sync"}).exit);
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 1);
    const Ran ran = Ctl({"certs", "sync"});
    EXPECT_EQ(3, ran.exit);
    EXPECT_NE(std::string::npos, ran.err.find("CertificatesOrKeys"));
}

TEST_F(CertsCommandTest, TwoProcessesAtOnceOnOneRoot)
{
    constexpr int kCertificates = 12;
    for (int i = 0; i < kCertificates; i++)
        AddCertificate("web" + std::to_string(i));
    sim.Control("PUT", "/latency", {{"ms", 5}});
    Ran runs[2];
    std::thread other([&] { runs[1] = RunProgram(KELVAROCTL_PATH, WithModule({"certs", "sync"}), ""); });
    runs[0] = RunProgram(KELVAROCTL_PATH, WithModule({"certs", "sync"}), "");
    other.join();
    EXPECT_EQ(0, runs[0].exit) << runs[0].err;
    EXPECT_EQ(0, runs[1].exit) << runs[1].err;
    const json listed = List();
    EXPECT_EQ(static_cast<size_t>(kCertificates), listed.size());
    for (const json& certificate : listed) {
        EXPECT_EQ(true, certificate["bound"]);
        EXPECT_EQ(true, certificate["inStep"]);
    }
}

TEST_F(CertsCommandTest, InstallBindsAndJudgesThePublicKey)
{
    AddCertificate("web");
    HoldSync();
    const json own = Issue({{"key", "web"}, {"subject", "CN=issued"}});
    const json strangers = Issue({{"subject", "CN=stranger"}});
    // An authority's answer: the chain first, the key's own certificate behind it.
    WriteFile("chain.pem", strangers["pem"].get<std::string>() + own["pem"].get<std::string>());
    const json installed = CtlJson({"certs", "install", File("chain.pem"), "--key", "web"});
    EXPECT_EQ(true, installed["publicKeyMatches"]);
    EXPECT_EQ("CN=issued", installed["certificate"]["subject"]);
    EXPECT_EQ(own["hash"], installed["certificate"]["thumbprint"]);
    EXPECT_EQ("web", installed["certificate"]["container"]);
    EXPECT_EQ(1u, List().size());

    WriteFile("other.pem", strangers["pem"]);
    EXPECT_EQ(2, Ctl({"certs", "install", File("other.pem"), "--key", "web"}).exit);
    EXPECT_EQ(1u, List().size());
    const Ran forced = Ctl({"certs", "install", File("other.pem"), "--key", "web", "--force"});
    EXPECT_EQ(0, forced.exit);
    EXPECT_NE(std::string::npos, forced.err.find("is not that of 'web'"));
    EXPECT_EQ(2u, List().size());

    WriteFile("old.pem", Issue({{"key", "web"}, {"notBefore", 1577836800}, {"notAfter", 1580515200}})["pem"]);
    const Ran expired = Ctl({"certs", "install", File("old.pem"), "--key", "web"});
    EXPECT_NE(std::string::npos, expired.err.find("warning: the certificate expired on 2020-02-01")) << expired.err;
    EXPECT_NE(std::string::npos, Out({"certs", "list"}).find("2020-02-01, expired"));
    AddCertificate("gone");
    WriteFile("gone.pem", Issue({{"key", "gone"}})["pem"]);
    Out({"certs", "install", File("gone.pem"), "--key", "gone"});
    Out({"keys", "delete", "gone", "--yes"});
    const json checked = CtlJson({"certs", "list", "--check"}, 1)["certificates"];
    std::map<std::string, int> found;
    for (const json& certificate : checked)
        found[certificate["vaultKey"]]++;
    EXPECT_EQ((std::map<std::string, int>{{"matches", 2}, {"missing", 1}, {"other", 1}}), found) << checked;
}

TEST_F(CertsCommandTest, RemovedFromTheStoreAndKeptInTheVault)
{
    AddCertificate("web");
    Out({"certs", "sync"});
    const std::string thumbprint = List()[0]["thumbprint"];
    WriteFile("soon.pem", Issue({{"subject", "CN=soon"}, {"notAfter", time(nullptr) + 3 * 86400 + 60}})["pem"]);
    std::string pasted;  // as Windows shows it
    for (size_t at = 0; at < thumbprint.size(); at += 2)
        pasted += (at ? " " : "") + thumbprint.substr(at, 2);
    Run("0 certs install @soon.pem --key web --force | , 3 days left\n2 certs remove " + thumbprint +
        " | there is no terminal: add --yes\n2 certs remove abcd --yes | is not a thumbprint\n0 certs remove '" +
        pasted + "' --yes | removed from the machine store .. the vault keeps it\n5 certs remove " + thumbprint +
        " --yes | the machine store has no certificate\n");
    const json left = List();
    ASSERT_EQ(1u, left.size());
    EXPECT_EQ("CN=soon", left[0]["subject"]);
    EXPECT_EQ(3, left[0]["daysLeft"]);
}

TEST_F(CertsCommandTest, TheUsersStoreIsApart)
{
    AddCertificate("web");
    Out({"certs", "sync"});
    EXPECT_EQ(json::array(), CtlJson({"certs", "list", "--user"})["certificates"]);
    WriteFile("other.der", FromBase64Url(Issue({{"subject", "CN=other"}})["der"]));
    EXPECT_EQ(0, Ctl({"certs", "install", File("other.der"), "--key", "web", "--force", "--user"}).exit);
    EXPECT_EQ(1u, CtlJson({"certs", "list", "--user"})["certificates"].size());
    EXPECT_EQ(1u, List().size());
}

TEST_F(CertsCommandTest, FilesThatHoldNoCertificate)
{
    AddCertificate("web");
    const std::string begin = "-----BEGIN CERTIFICATE-----\n";
    const std::string end = "\n-----END CERTIFICATE-----\n";
    const Row<const char*, std::string> rows[] = {
        {"empty", ""},
        {"text", "certificate"},
        {"no end", begin + "AQID"},
        {"no Base64", begin + "***" + end},
        {"an empty block", begin + end},
        {"no certificate inside", begin + "AQID" + end},
        {"DER of something else", std::string("\x30\x03\x02\x01\x05", 5)},
    };
    for (const auto& [name, content] : rows) {
        SCOPED_TRACE(name);
        WriteFile("file", content);
        EXPECT_EQ(2, Ctl({"certs", "install", File("file"), "--key", "web"}).exit);
    }
    EXPECT_EQ(2, Ctl({"certs", "install", File("missing"), "--key", "web"}).exit);
    EXPECT_EQ(5, Ctl({"certs", "install", File("file"), "--key", "nobody"}).exit);
}

TEST_F(CertsCommandTest, PublishTellsWhatHappened)
{
    AddCertificate("web");
    HoldSync();
    EXPECT_EQ("no_certificate", CtlJson({"certs", "publish", "web"}, 5)["error"]["code"]);
    const json issued = Issue({{"key", "web"}, {"subject", "CN=issued"}});
    WriteFile("web.pem", issued["pem"]);
    Out({"certs", "install", File("web.pem"), "--key", "web"});

    sim.Fault({{"path", "/create"}, {"action", "status"}, {"status", 500}});
    const json refused = CtlJson({"certs", "publish", "web"}, 6);
    EXPECT_EQ("not_published", refused["error"]["code"]);
    EXPECT_EQ(false, refused["certificate"]["inStep"]);

    const json published = CtlJson({"certs", "publish", "web"});
    EXPECT_EQ("published", published["outcome"]);
    EXPECT_EQ(issued["hash"], published["certificate"]["thumbprint"]);
    EXPECT_TRUE(HasRequest("POST /certificates/web/pending/merge"));
    sim.ClearJournal();
    EXPECT_EQ("known", CtlJson({"certs", "publish", "web"})["outcome"]);
    EXPECT_FALSE(HasRequest("POST "));
    EXPECT_EQ("published", CtlJson({"certs", "publish", "web", "--again"})["outcome"]);
    EXPECT_FALSE(HasRequest("POST ")) << "the vault has it";

    const json large = Issue({{"key", "web"}, {"size", 5000}});
    AddCertificate("big");
    WriteFile("big.pem", large["pem"]);
    Out({"certs", "install", File("big.pem"), "--key", "big", "--force"});
    const std::string message = CtlJson({"certs", "publish", "big"}, 5)["error"]["message"];
    EXPECT_NE(std::string::npos, message.find("5000 bytes")) << message;

    // The module takes a certificate for published even when the merge is refused, and leaves the request pending.
    AddCertificate("late");
    const json late = Issue({{"key", "late"}});
    WriteFile("late.pem", late["pem"]);
    Out({"certs", "install", File("late.pem"), "--key", "late"});
    sim.Fault({{"path", "/merge"}, {"action", "status"}, {"status", 403}});
    for (int attempt = 0; attempt < 2; ++attempt)
        EXPECT_EQ("not_published", CtlJson({"certs", "publish", "late"}, 6)["error"]["code"]);
    EXPECT_EQ(std::string::npos, MachineText("CertSync").find(late["hash"].get<std::string>()));
}

}  // namespace
