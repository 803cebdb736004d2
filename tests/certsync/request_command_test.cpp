// Certificate requests of vault keys.
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

using RequestCommandTest = CtlTest;

TEST_F(RequestCommandTest, BadArgumentsAndRefusals)
{
    AddKey("p256", "P-256");
    Run("2 keys request p256 | --subject or a --san\n"
        "2 keys request p256 --subject web01 | not a valid subject: 'web01'\n"
        "2 keys request p256 --subject CN=a --san web01 | dns:NAME\n"
        "2 keys request p256 --subject CN=a --der | --out\n"
        "5 keys request nobody --subject CN=a | 'nobody'\n"
        "! {\"path\":\"/sign\",\"action\":\"status\",\"status\":403}\n"
        "6 keys request p256 --subject CN=a");
}

}  // namespace
