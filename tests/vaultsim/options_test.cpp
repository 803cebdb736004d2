// The command line.
#include <gtest/gtest.h>

#include <stdexcept>

#include "vaultsim/options.h"

TEST(OptionsTest, AWrongCommandLineIsRefusedByName)
{
    const std::pair<std::vector<std::string>, const char*> rows[] = {
        {{}, "--dir"},
        {{"--dir"}, "--dir"},
        {{"--dir", "d", "--nope"}, "--nope"},
        {{"--dir", "d", "--listen-tls", "65536"}, "65536"},
        {{"--dir", "d", "--address", "1.2.3"}, "--address"},
        {{"--dir", "d", "--vault", "a:basic"}, "basic"},
        {{"--dir", "d", "--vault", "a", "b"}, "b"},
    };
    std::string help;
    for (const auto& [arguments, text] : rows) {
        try {
            vaultsim::ParseOptions(arguments, help);
            ADD_FAILURE() << text;
        } catch (const std::invalid_argument& error) {
            EXPECT_NE(std::string(error.what()).find(text), std::string::npos) << error.what();
        }
    }
    // Vaults add up; of other options the last counts.
    const vaultsim::Options given =
        vaultsim::ParseOptions({"--dir", "a", "--dir", "b", "--vault", "one", "--vault", "two:standard", "--arc-port",
                                "65535", "--tenant", "t", "--arc"},
                               help);
    EXPECT_EQ(given.directory, "b");
    EXPECT_EQ(given.arcPort, 65535);
    EXPECT_EQ(given.tenant, "t");
    EXPECT_TRUE(given.arc);
    ASSERT_EQ(given.vaults.size(), 2u);
    EXPECT_TRUE(given.vaults[0].premium);
    EXPECT_EQ(given.vaults[1].name, "two");
    EXPECT_FALSE(given.vaults[1].premium);
    EXPECT_EQ(vaultsim::ParseOptions({"--dir", "d"}, help).vaults.at(0).name, "contoso-keys");
    EXPECT_TRUE(help.empty());
    vaultsim::ParseOptions({"--help"}, help);
    EXPECT_NE(help.find("--close-tls"), std::string::npos);
}
