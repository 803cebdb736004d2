// Set-ups that don't work, and what `doctor` says about each.
#include <algorithm>
#include <filesystem>
#include <map>

#include "kelvaroctl/module_log.h"
#include "tests/common/data_rows.h"
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

class DoctorTest : public CtlTest {
  protected:
    void SetUp() override
    {
        RestoreEnvironment();
        root.RemoveKey(HKEY_LOCAL_MACHINE);
        CtlTest::SetUp();
        root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 1);
        root.SetText(HKEY_LOCAL_MACHINE, "LogfilePath", root.logDirectory());
        sim.AddKey(Simulator::kVault, {{"name", "key"}, {"kty", "EC"}, {"crv", "P-256"}});
    }

    void TearDown() override { RestoreEnvironment(); }
    static void SetVariable(const std::string& name, const std::string& value)
    {
        SetEnvironmentVariableW(Wide(name).c_str(), value.empty() ? nullptr : Wide(value).c_str());
    }
    void RestoreEnvironment() const
    {
        for (const char* name : {"http_proxy", "https_proxy", "IDENTITY_ENDPOINT"})
            SetVariable(name, "");
        SetVariable("KELVARO_CONNECT_TO", connectTo_);
    }

    // A fault of all requests whose path has this part.
    void Fault(const std::string& path, json fault)
    {
        fault["path"] = path;
        fault["times"] = -1;
        if (!fault.contains("action"))
            fault["action"] = "status";
        sim.Fault(fault);
    }

    Ran Doctor(std::vector<std::string> arguments)
    {
        // A busy machine must not fail a check.
        if (std::find(arguments.begin(), arguments.end(), "--timeout") == arguments.end())
            arguments.insert(arguments.begin(), {"--timeout", "60"});
        arguments.insert(arguments.begin(), "doctor");
        const Ran ran = RunProgram(KELVAROCTL_PATH, WithModule(arguments), "");
        // Neither the secret nor a token, which is Base64 of JSON, ever shows.
        for (const char* secret : {Simulator::kClientSecret, "eyJ"})
            EXPECT_EQ(std::string::npos, (ran.out + ran.err).find(secret)) << ran.out;
        return ran;
    }

    // The first check with this state; null if there is none. Windows' runtime here has no router to register with.
    static json First(const json& report, const std::string& state)
    {
        for (const json& check : report["checks"]) {
            if (check["state"] == state && check["id"] != "registration")
                return check;
        }
        return nullptr;
    }

    static std::string Variable(const WCHAR* name)
    {
        WCHAR value[1000] = {};
        GetEnvironmentVariableW(name, value, 1000);
        return Narrow(value);
    }

    const std::string connectTo_ = Variable(TEXT("KELVARO_CONNECT_TO"));
    const bool onWindows_ = connectTo_.empty();  // where nothing is redirected
};

TEST_F(DoctorTest, NothingIsWrong)
{
    const json report = json::parse(Doctor({"--json", "--timeout", "115964117"}).out);  // 8 ms, were it cut to 32 bits
    EXPECT_EQ(26u, report["checks"].size());
    EXPECT_EQ(nullptr, First(report, "fail"));
    EXPECT_EQ(nullptr, First(report, "warn"));
    EXPECT_NE(std::string::npos, First(report, "ok")["found"].get<std::string>().find("version 1.0"));
    EXPECT_EQ(nullptr, First(json::parse(Doctor({"--json", "--user"}).out), "fail"));
    // A machine that the Arc agent connects.
    root.SetNumber(HKEY_LOCAL_MACHINE, "AuthenticationType", 1);
    SetVariable("IDENTITY_ENDPOINT", "http://localhost:40342/metadata/identity/oauth2/token");
    const Ran text = Doctor({});
    EXPECT_NE(std::string::npos, text.out.find("ES256 with 'key', verified on this machine\n")) << text.out;
    EXPECT_NE(std::string::npos, text.out.find(" 0 to look at, ")) << text.out;
}

// Someone may have linked the name of the log's probe to another file. Without a module, today's log doesn't exist.
TEST_F(DoctorTest, TheLogsProbeKeepsWhatItsNameLeadsTo)
{
    WriteFile("another", "as it was");
    std::filesystem::create_hard_link(std::filesystem::u8path(File("another")),
                                      std::filesystem::u8path(kelvaroctl::FindLog().file + ".probe"));
    const Ran ran = RunProgram(KELVAROCTL_PATH, {"--module", File("none"), "doctor", "--timeout", "60"}, "");
    EXPECT_NE(std::string::npos, ran.out.find("log: level 1")) << ran.out;
    EXPECT_EQ("as it was", ReadFile(File("another")));
}

// The rows of tests/data/doctor_faults.txt, a third each, which CTest runs side by side.
class DoctorFaultTest : public DoctorTest, public testing::WithParamInterface<size_t> {
  protected:
    // Performs a line of a row.
    void Break(std::string line)
    {
        Replace(&line, "$ROOT", root.directory());
        Replace(&line, "$CONNECT", connectTo_);
        // The simulator's listener of plain HTTP takes a proxy's requests.
        const std::string http = connectTo_.substr(std::min(connectTo_.find(":80:") + 4, connectTo_.size()));
        Replace(&line, "$HTTP", http.substr(0, http.find(' ')));
        const size_t name = line.find(' ') + 1, end = std::min(line.find(' ', name), line.size());
        verbs_.at(line.substr(0, name - 1))(line.substr(name, end - name), line.substr(std::min(end + 1, line.size())));
    }
    static void Replace(std::string* line, const std::string& word, const std::string& by)
    {
        if (const size_t at = line->find(word); at != std::string::npos)
            line->replace(at, word.size(), by);
    }
    // A certificate of the key in the machine's store.
    void Bind(int64_t notAfter)
    {
        const json wanted = {{"key", "key"}, {"subject", "CN=web"}, {"notBefore", 1577836800}, {"notAfter", notAfter}};
        const json issued = sim.Control("POST", std::string("/vaults/") + Simulator::kVault + "/issue", wanted);
        WriteFile("web.pem", issued["pem"].get<std::string>());
        Out({"certs", "install", File("web.pem"), "--key", "key"});
    }
    // "SYSTEM EXIT CHECK CODE ARGUMENT... | WORDS"
    void Expect(const std::string& line)
    {
        const size_t bar = line.find(" | ");
        const std::vector<std::string> words = Split(line.substr(0, bar));
        std::vector<std::string> arguments(words.begin() + 4, words.end());
        arguments.push_back("--json");
        const Ran ran = Doctor(arguments);
        const json report = json::parse(ran.out, nullptr, false);
        const json found = First(report, arguments[0] == "--strict" ? "warn" : "fail");
        ASSERT_TRUE(found.is_object()) << ran.out << ran.err;
        EXPECT_EQ(onWindows_ ? "3" : words[1], std::to_string(ran.exit)) << ran.err;
        EXPECT_EQ(false, report["ok"]);
        EXPECT_EQ(words[2], found["id"]) << found;
        const std::string code = found.contains("service") ? found["service"]["code"].get<std::string>() : "";
        EXPECT_EQ(words[3], code.empty() ? "-" : code) << found;
        const std::string says = found.value("cause", "") + found.value("fix", "");
        EXPECT_NE(std::string::npos, says.find(line.substr(bar + 3))) << found;
    }

  private:
    const std::map<std::string, std::function<void(const std::string& name, const std::string& rest)>> verbs_ = {
        {"set", [this](auto& name, auto& text) { root.SetText(HKEY_LOCAL_MACHINE, name, text); }},
        {"user", [this](auto& name, auto& text) { root.SetText(HKEY_CURRENT_USER, name, text); }},
        {"number",
         [this](auto& name, auto& text) {
             root.SetNumber(HKEY_LOCAL_MACHINE, name, static_cast<DWORD>(std::stoul(text)));
         }},
        {"env", [](auto& name, auto& text) { SetVariable(name, text); }},
        {"put", [this](auto& path, auto& text) { sim.Control("PUT", path, json::parse(text)); }},
        {"fault", [this](auto& path, auto& text) { Fault(path, json::parse(text)); }},
        {"key",
         [this](auto& name, auto& text) {
             json key = json::parse(text);
             key["name"] = name;
             sim.AddKey(Simulator::kVault, key);
         }},
        {"bind", [this](auto& time, auto&) { Bind(std::stoll(time)); }},
    };
};

TEST_P(DoctorFaultTest, HasItsCheckItsCauseAndItsExitStatus)
{
    const std::vector<std::string> lines = SectionLines("doctor_faults.txt", "DoctorFaultTest");
    const auto judges = [](const std::string& line) {
        return line.rfind("all ", 0) == 0 || line.rfind("linux ", 0) == 0;
    };
    size_t row = 0;
    for (auto first = lines.begin(); first != lines.end(); ++row) {
        const auto last = std::find_if(first, lines.end(), judges);
        ASSERT_NE(lines.end(), last);
        if (row % 3 == GetParam() && (!onWindows_ || last->rfind("all ", 0) == 0)) {
            SCOPED_TRACE(*last);
            SetUp();
            std::for_each(first, last, [this](const std::string& line) { Break(line); });
            Expect(*last);
        }
        first = last + 1;
    }
}

INSTANTIATE_TEST_SUITE_P(Thirds, DoctorFaultTest, testing::Range<size_t>(0, 3));

TEST_F(DoctorTest, AModuleThatCannotBeLoaded)
{
    const Ran ran = RunProgram(KELVAROCTL_PATH, {"--module", File("none"), "--json", "doctor"}, "");
    EXPECT_EQ(3, ran.exit);
    const json report = json::parse(ran.out);
    EXPECT_EQ("module", First(report, "fail")["id"]);
    EXPECT_NE(std::string::npos, First(report, "fail")["cause"].get<std::string>().find(File("none")));
    // The services are still asked.
    EXPECT_EQ("ok", report["checks"][15]["state"]) << report["checks"][15];
}

TEST_F(DoctorTest, WritingReportsWhatItLeftBehind)
{
    for (const bool plainKeys : {true, false}) {
        // Windows' runtime here can't sign certificate requests.
        if (onWindows_ && !plainKeys)
            continue;
        SetUp();
        root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", plainKeys ? 1 : 0);
        EXPECT_EQ("ok", json::parse(Doctor({"--write", "--json"}).out)["checks"].back()["state"]);
        sim.Fault({{"path", "/deleted"}, {"method", "DELETE"}, {"times", -1}, {"action", "status"}, {"status", 403}});
        const json left = json::parse(Doctor({"--write", "--json"}).out)["checks"].back();
        EXPECT_EQ("warn", left["state"]) << left;
        EXPECT_NE(std::string::npos, left["found"].get<std::string>().find("left behind: the deleted doctor-")) << left;
        Fault("/create", {{"inner", "ForbiddenByPolicy"}});
        const json refused = json::parse(Doctor({"--write", "--json"}).out)["checks"].back();
        EXPECT_EQ("nothing was left behind", refused["found"]) << refused;
    }
}

}  // namespace
