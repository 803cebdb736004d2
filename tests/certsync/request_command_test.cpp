// Certificate requests of vault keys.
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

class RequestCommandTest : public CtlTest {
  protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        AddKey("p256", "P-256");
    }
};

TEST_F(RequestCommandTest, LettersBeyondAsciiAreUtf8)
{
    Out({"keys", "request", "p256", "--subject", "CN=web01, L=K\xC3\xB6ln", "--out", File("req.der"), "--der"});
    EXPECT_NE(std::string::npos, ReadFile(File("req.der")).find("\x0C\x05K\xC3\xB6ln"));
}

TEST_F(RequestCommandTest, WhatCannotBeRequested)
{
    Run("2 keys request p256 | --subject or a --san\n"
        "2 keys request p256 --subject web01 | not a valid subject: 'web01'\n"
        "2 keys request p256 --subject CN=a --san web01 | dns:NAME\n"
        "2 keys request p256 --subject CN=a --der | --out\n"
        "5 keys request nobody --subject CN=a | 'nobody'\n"
        "! {\"path\":\"/sign\",\"action\":\"status\",\"status\":403}\n"
        "6 keys request p256 --subject CN=a");
}

}  // namespace
