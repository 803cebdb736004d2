// Which way the tool takes to the provider, on a system without a key storage router.
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

using nlohmann::json;

using ViaTest = CtlTest;

TEST_F(ViaTest, TheModuleIsTheWayUnlessAnotherIsNamed)
{
    EXPECT_EQ("module", CtlJson({"provider", "show"})["via"]);
    EXPECT_EQ("module", CtlJson({"provider", "show", "--via", "module"})["via"]);
    // The tool of a build finds the module of that build.
    EXPECT_EQ(0, RunProgram(KELVAROCTL_PATH, {"provider", "show"}, "").exit);
}

TEST_F(ViaTest, AnAnswerThatCannotBeWrittenIsAFailureWithAMessage)
{
    const Ran ran = RunProgram("/bin/sh", {"-c", std::string(KELVAROCTL_PATH) + " config show > /dev/full"}, "");
    EXPECT_EQ(7, ran.exit);
    EXPECT_NE(std::string::npos, ran.err.find("cannot write the answer")) << ran.err;
}

TEST_F(ViaTest, OtherWaysAreRefusedWithTheReason)
{
    const struct {
        const char* name;
        std::vector<std::string> arguments;
        const char* reason;
    } rows[] = {
        {"no router here", {"--via", "ncrypt", "keys", "list"}, "needs Windows"},
        {"a module beside the router",
         {"--via", "ncrypt", "--module", KELVARO_MODULE_PATH, "keys", "list"},
         "--module"},
        {"unknown", {"--via", "rpc", "keys", "list"}, "--via"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const Ran ran = RunProgram(KELVAROCTL_PATH, row.arguments, "");
        EXPECT_EQ(2, ran.exit);
        EXPECT_NE(std::string::npos, ran.err.find(row.reason)) << ran.err;
    }
    EXPECT_EQ(0u, sim.Journal().size());
}

}  // namespace
