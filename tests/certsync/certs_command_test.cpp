// certs list, install, publish and sync, as an administrator runs them.
#include <set>
#include <thread>

#include "tests/certsync/certs_fixture.h"
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

class CertsCommandTest : public CtlTest {
  protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        for (const HKEY hive : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER})
            root.SetNumber(hive, "CertificatesOrKeys", 0);
        ClearStores();  // on Windows they outlive a test
        AddCertificate("web");
    }
    void TearDown() override { ClearStores(); }

    void AddCertificate(const std::string& name, const std::string& subject = "CN=web01")
    {
        AddVaultCertificate(name, {{"subject", subject}});
    }
    // A certificate from an authority outside the vault, also in the file.
    Issued IssueTo(const std::string& file, const json& wanted)
    {
        const Issued issued = Issue(wanted);
        WriteFile(file, issued.pem);
        return issued;
    }
    std::string Recorded() const { return root.GetText(HKEY_LOCAL_MACHINE, "CertSync"); }
    // Of the machine store.
    json List() { return CtlJson({"certs", "list"})["certificates"]; }
    // From then on only the sync command copies certificates.
    void HoldSync() { root.SetNumber(HKEY_LOCAL_MACHINE, "FromKVLastSyncTime", 0xFFFFFFFF); }
};

TEST_F(CertsCommandTest, SyncCopiesWhatIsNew)
{
    sim.Reset();
    // The simulator reads names from the end, as the service does.
    AddCertificate("new", "O=\"Acme, Inc.\", CN=web01");
    AddCertificate("dummy", "CN=Dummy Certificate Name");
    HoldSync();  // the limit of one sync per twenty minutes doesn't apply to an administrator
    json answer = CtlJson({"certs", "sync"});
    ASSERT_EQ(1u, answer["added"].size());
    EXPECT_EQ("new", answer["added"][0]["container"]);
    EXPECT_EQ("CN=web01, O=\"Acme, Inc.\"", answer["added"][0]["subject"]);
    EXPECT_EQ(2, answer["recorded"]);
    json listed = List();
    ASSERT_EQ(1u, listed.size());
    // A day may end between the two commands.
    listed[0]["daysLeft"] = answer["added"][0]["daysLeft"] = nullptr;
    EXPECT_EQ(answer["added"][0], listed[0]);
    EXPECT_EQ(true, listed[0]["bound"]);
    EXPECT_EQ(true, listed[0]["inStep"]);
    const std::string record = Recorded();
    EXPECT_NE(std::string::npos, record.find(listed[0]["thumbprint"].get<std::string>()));

    Run("0 certs sync | nothing new\n"
        "! {\"path\":\"/certificates?\",\"action\":\"status\",\"status\":403,\"times\":-1}\n"
        "6 certs sync --json | not_listed\n");
    EXPECT_EQ(record, Recorded());
    AddCertificate("later", "CN=later");
    Run("0 certs sync | bound to 'later'\n"
        "2 certs sync --user\n"
        "! {\"path\":\"/oauth2/token\",\"action\":\"status\",\"status\":401}\n"
        "4 certs sync\n");
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 1);
    Run("3 certs sync | CertificatesOrKeys\n");
}

TEST_F(CertsCommandTest, TwoProcessesAtOnce)
{
    for (int i = 1; i < 12; i++)
        AddCertificate("web" + std::to_string(i));
    sim.Control("PUT", "/latency", {{"ms", 5}});
    Ran runs[2];
    std::thread other([&] { runs[1] = RunProgram(KELVAROCTL_PATH, WithModule({"certs", "sync"}), ""); });
    runs[0] = RunProgram(KELVAROCTL_PATH, WithModule({"certs", "sync"}), "");
    other.join();
    EXPECT_EQ(0, runs[0].exit) << runs[0].err;
    EXPECT_EQ(0, runs[1].exit) << runs[1].err;
    EXPECT_EQ(12u * 41, Recorded().size());
    const json listed = List();
    EXPECT_EQ(12u, listed.size());
    for (const json& certificate : listed)
        EXPECT_TRUE(certificate["bound"] && certificate["inStep"]) << certificate;
}

TEST_F(CertsCommandTest, InstallBindsAndComparesThePublicKey)
{
    HoldSync();
    const Issued own = IssueTo("own.pem", {{"key", "web"}, {"subject", "CN=issued"}});
    const Issued strangers = IssueTo("other.pem", {{"subject", "CN=stranger"}});
    // An authority's answer: first the chain, then the key's own certificate.
    WriteFile("chain.pem", strangers.pem + own.pem);
    const json installed = CtlJson({"certs", "install", File("chain.pem"), "--key", "web"});
    EXPECT_EQ(true, installed["publicKeyMatches"]);
    EXPECT_EQ("CN=issued", installed["certificate"]["subject"]);
    EXPECT_EQ(own.hash, installed["certificate"]["thumbprint"]);
    EXPECT_EQ("web", installed["certificate"]["container"]);

    Run("2 certs install @other.pem --key web\n");
    EXPECT_EQ(1u, List().size());
    AddCertificate("gone");
    IssueTo("old.pem", {{"key", "web"}, {"notBefore", 1577836800}, {"notAfter", 1580515200}});
    IssueTo("gone.pem", {{"key", "gone"}});
    Run("0 certs install @other.pem --key web --force | is not that of 'web'\n"
        "0 certs install @old.pem --key web | warning: the certificate expired on 2020-02-01\n"
        "0 certs list | 2020-02-01, expired\n"
        "0 certs install @gone.pem --key gone\n"
        "0 keys delete gone --yes\n");
    std::multiset<std::string> found;
    const json checked = CtlJson({"certs", "list", "--check"}, 1)["certificates"];
    for (const json& certificate : checked)
        found.insert(certificate["vaultKey"].get<std::string>());
    EXPECT_EQ((std::multiset<std::string>{"matches", "matches", "missing", "other"}), found);
}

TEST_F(CertsCommandTest, RemovedFromTheStoreAndKeptInTheVault)
{
    Out({"certs", "sync"});
    const std::string thumbprint = List()[0]["thumbprint"];
    IssueTo("soon.pem", {{"subject", "CN=soon"}, {"notAfter", time(nullptr) + 3 * 86400 + 60}});
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

TEST_F(CertsCommandTest, TheUsersStoreIsSeparate)
{
    Out({"certs", "sync"});
    EXPECT_EQ(json::array(), CtlJson({"certs", "list", "--user"})["certificates"]);
    const Bytes der = IssueTo("other.pem", {{"subject", "CN=other"}}).der;
    WriteFile("other.der", {der.begin(), der.end()});
    Run("0 certs install @other.der --key web --force --user\n");
    EXPECT_EQ(1u, CtlJson({"certs", "list", "--user"})["certificates"].size());
    EXPECT_EQ(1u, List().size());
}

TEST_F(CertsCommandTest, FilesWithoutACertificate)
{
    const std::string begin = "-----BEGIN CERTIFICATE-----\n";
    const std::string end = "\n-----END CERTIFICATE-----\n";
    for (const std::string& content : {std::string(), std::string("certificate"), begin + "AQID", begin + "***" + end,
                                       begin + end, begin + "AQID" + end, std::string("\x30\x03\x02\x01\x05", 5)}) {
        SCOPED_TRACE(content);
        WriteFile("file", content);
        Run("2 certs install @file --key web\n");
    }
    Run("2 certs install @missing --key web\n5 certs install @file --key nobody\n");
}

TEST_F(CertsCommandTest, PublishSaysWhatHappened)
{
    HoldSync();
    const Issued issued = IssueTo("web.pem", {{"key", "web"}, {"subject", "CN=issued"}});
    Run("5 certs publish web --json | no_certificate\n"
        "0 certs install @web.pem --key web\n"
        "! {\"path\":\"/create\",\"action\":\"status\",\"status\":500}\n"
        "6 certs publish web --json | \"inStep\": false .. not_published\n");
    const json published = CtlJson({"certs", "publish", "web"});
    EXPECT_EQ("published", published["outcome"]);
    EXPECT_EQ(issued.hash, published["certificate"]["thumbprint"]);
    EXPECT_NE(std::string::npos, json(sim.VaultRequests()).dump().find("POST /certificates/web/pending/merge"));
    sim.ClearJournal();
    Run("0 certs publish web --json | known\n0 certs publish web --again --json | published\n");
    EXPECT_EQ(std::string::npos, json(sim.VaultRequests()).dump().find("POST ")) << "the vault has it";

    IssueTo("big.pem", {{"key", "web"}, {"size", 5000}});
    AddCertificate("big");
    // The module considers a certificate published even if the merge is refused, and leaves the request pending.
    AddCertificate("late");
    const Issued late = IssueTo("late.pem", {{"key", "late"}});
    Run("0 certs install @big.pem --key big --force\n"
        "5 certs publish big | 5000 bytes\n"
        "0 certs install @late.pem --key late\n"
        "! {\"path\":\"/merge\",\"action\":\"status\",\"status\":403}\n"
        "6 certs publish late --json | not_published\n"
        "6 certs publish late --json | not_published\n");
    EXPECT_EQ(std::string::npos, Recorded().find(late.hash));
}

}  // namespace
