#include "tests/kelvaroctl/ctl_fixture.h"

#include <fstream>
#include <sstream>

#include "tests/common/host.h"

using nlohmann::json;

void CtlTest::SetUp()
{
    sim.Reset();
    WriteClientSettings(root);
}

std::vector<std::string> CtlTest::WithModule(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"--module", KELVARO_MODULE_PATH});
    return arguments;
}

Ran CtlTest::Ctl(const std::vector<std::string>& arguments, const std::string& input)
{
    return RunProgram(KELVAROCTL_PATH, WithModule(arguments), input);
}

json CtlTest::CtlJson(std::vector<std::string> arguments, int exit)
{
    arguments.push_back("--json");
    const Ran ran = Ctl(arguments);
    EXPECT_EQ(exit, ran.exit) << ran.out << ran.err;
    const json answer = json::parse(ran.out, nullptr, false);
    EXPECT_TRUE(answer.is_object()) << ran.out << ran.err;
    return answer;
}

std::string CtlTest::Out(const std::vector<std::string>& arguments)
{
    const Ran ran = Ctl(arguments);
    EXPECT_EQ(0, ran.exit) << ran.err;
    return ran.out;
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
