// A secret that cannot be put under protection: only here can that be made to fail from outside.
#include <fstream>

#include "tests/provider/provider_fixture.h"

namespace {

TEST_F(ProviderTest, SecretThatCannotBeProtectedStaysInTheRegistry)
{
    root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", "new");
    // No master key can be made below a file.
    std::ofstream(root.directory() + "/root/dpapi") << "in the way";
    const KSP_PROVIDER* const provider = Record(Open());
    EXPECT_EQ("new", Narrow(KVCText(provider->machineKvc->clientSecret)));
    EXPECT_EQ("new", root.GetText(HKEY_LOCAL_MACHINE, "ClientSecret"));
    EXPECT_EQ("", root.GetText(HKEY_LOCAL_MACHINE, "ClientDPAPISecret"));
    EXPECT_TRUE(LinesWith("Reading Machine DPAPI Secret").empty());
}

}  // namespace
