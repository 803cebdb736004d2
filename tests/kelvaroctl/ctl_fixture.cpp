#include "tests/kelvaroctl/ctl_fixture.h"

#include <fstream>
#include <sstream>

#include "kelvaroctl/hash.h"
#include "tests/common/data_rows.h"
#include "tests/common/host.h"

json CtlTest::CtlJson(std::vector<std::string> arguments, int exit)
{
    arguments.push_back("--json");
    const Ran ran = Ctl(arguments);
    EXPECT_EQ(exit, ran.exit) << ran.out << ran.err;
    const json answer = json::parse(ran.out, nullptr, false);
    EXPECT_TRUE(answer.is_object()) << ran.out << ran.err;
    return answer;
}

// See CtlTest::Run.
static json FaultOf(const std::string& text)
{
    if (text[0] == '{')
        return json::parse(text);
    const size_t blank = text.find(' ');
    const std::string action = text.substr(blank + 1);
    json fault = {{"path", text.substr(0, blank)}, {"times", -1}, {"action", action}};
    if (std::isdigit(static_cast<unsigned char>(action[0])))
        fault.update({{"action", "status"}, {"status", std::stoi(action)}});
    return fault;
}

void CtlTest::Run(const std::string& table)
{
    std::istringstream lines(table);
    std::string input;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty())
            continue;
        if (line[0] == '!') {
            sim.Fault(FaultOf(line.substr(2)));
        } else if (line[0] == '<') {
            input = line.substr(2) + "\n";
        } else {
            RunLine(line, input);
            sim.Control("DELETE", "/faults");
            input.clear();
        }
    }
}

void CtlTest::RunSection(int part)
{
    std::string table;
    for (const std::string& line :
         SectionLines("command_lines.txt", CurrentTest() + (part > 1 ? " " + std::to_string(part) : "")))
        table += line + "\n";
    Run(table);
}

void CtlTest::RunLine(const std::string& line, const std::string& input)
{
    SCOPED_TRACE(line);
    const size_t bar = std::min(line.find(" | "), line.size());
    std::vector<std::string> arguments = Split(line.substr(0, bar));
    const int exit = std::stoi(arguments.front());
    arguments.erase(arguments.begin());
    const Ran ran = Ctl(arguments, input);
    const std::string output = ran.out + ran.err;
    EXPECT_EQ(exit, ran.exit) << output;
    size_t found = 0;
    for (size_t at = bar + 3; at < line.size() && found != std::string::npos;) {
        const size_t end = std::min(line.find(" .. ", at), line.size());
        const std::string words = line.substr(at, end - at);
        at = end + 4;
        if (words[0] == '!') {
            EXPECT_EQ(std::string::npos, output.find(words.substr(1))) << output;
            continue;
        }
        found = output.find(words, found);
        EXPECT_NE(std::string::npos, found) << "'" << words << "' isn't in its place in\n" << output;
    }
}

std::vector<std::string> CtlTest::Split(const std::string& line) const
{
    std::vector<std::string> words = SplitWords(line);
    for (std::string& word : words) {
        if (word[0] == '\'')
            word.erase(0, 1);
        if (word.size() > 2 && word[1] == '*')
            word = std::string(std::stoul(word.substr(2)), word[0]);
        else if (word[0] == '@')
            word = File(word.substr(1));
    }
    return words;
}

kelvaroctl::Bytes CtlTest::PublicDer(const std::string& name)
{
    size_t at = 0;
    return *kelvaroctl::ReadPem(sim.PublicKeyPem(Simulator::kVault, name), "PUBLIC KEY", name, &at);
}

std::string CtlTest::Fingerprint(const std::string& name)
{
    return kelvaroctl::HexText(kelvaroctl::Digest(BCRYPT_SHA256_ALGORITHM, 32, PublicDer(name)));
}

void CtlTest::WriteFile(const std::string& name, const std::string& content) const
{
    std::ofstream file(File(name), std::ios::binary);
    file << content;
    ASSERT_TRUE(file.good());
}

std::string CtlTest::ReadFile(const std::string& path) const
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.good()) << path;
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void CtlTest::AddKey(const std::string& name, const std::string& kind, const json& more)
{
    json key = {{"name", name}, {"kty", kind == "RSA" ? "RSA" : "EC"}};
    if (kind != "RSA")
        key["crv"] = kind;
    key.update(more);
    sim.AddKey(Simulator::kVault, key);
}
