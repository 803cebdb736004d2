// The two managed identity services.
#include <sys/stat.h>

#include <filesystem>

#include "tests/vaultsim/sim_test.h"
#include "vaultsim/files.h"

namespace {

const std::string kPath = "/metadata/identity/oauth2/token?resource=https://vault.azure.net&api-version=";

std::string SecretFile(const Reply& challenge)
{
    const auto line = challenge.headers.find("WWW-Authenticate");
    const std::string prefix = "Basic realm=";
    if (challenge.status != 401 || line == challenge.headers.end() || line->second.rfind(prefix, 0) != 0)
        return "";
    return line->second.substr(prefix.size());
}

}  // namespace

class IdentityTest : public SimTest {
  protected:
    static Reply Arc(const std::string& secret = "")
    {
        httplib::Headers headers = {{"Metadata", "True"}};
        if (!secret.empty())
            headers.emplace("Authorization", "Basic " + secret);
        return Identity("arc", kPath + "2020-06-01", headers);
    }
};

TEST_F(IdentityTest, MetadataAnswersAProperRequestOnly)
{
    const struct {
        const char* name;
        std::string target;
        httplib::Headers headers;
        int status;
    } rows[] = {
        {"proper", kPath + "2018-02-01", {{"Metadata", "true"}}, 200},
        {"any letter case", kPath + "2018-02-01", {{"metadata", "TRUE"}}, 200},
        {"its own client id", kPath + "2018-02-01&client_id=" + Sim().options.clientId, {{"Metadata", "true"}}, 200},
        {"no header", kPath + "2018-02-01", {}, 400},
        {"the other service's version", kPath + "2020-06-01", {{"Metadata", "true"}}, 400},
        {"no version", "/metadata/identity/oauth2/token?resource=https://vault.azure.net", {{"Metadata", "true"}}, 400},
        {"no resource", "/metadata/identity/oauth2/token?api-version=2018-02-01", {{"Metadata", "true"}}, 400},
        {"another resource",
         "/metadata/identity/oauth2/token?resource=x&api-version=2018-02-01",
         {{"Metadata", "true"}},
         400},
        {"another page", "/metadata/instance?api-version=2018-02-01", {{"Metadata", "true"}}, 404},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Identity("http", row.target, row.headers).status, row.status) << row.name;

    const Reply unknown = Identity("http", kPath + "2018-02-01&client_id=nobody", {{"Metadata", "true"}});
    EXPECT_EQ(unknown.status, 400);
    EXPECT_EQ(unknown.json(), Sample(SERVICE_SAMPLES "/error-400-identity-not-found.json"));

    const Json answer = Identity("http", kPath + "2018-02-01", {{"Metadata", "true"}}).json();
    for (const auto& [name, value] : answer.items())
        EXPECT_TRUE(value.is_string()) << name;
    const Reply list = Send(*Client("contoso-keys.vault.azure.net"), "GET", "/keys?api-version=7.0",
                            {{"Authorization", "Bearer " + answer["access_token"].get<std::string>()}}, "");
    EXPECT_EQ(list.status, 200);
}

TEST_F(IdentityTest, ArcWantsTheSecretOfAFreshFileOnce)
{
    const std::string file = SecretFile(Arc());
    struct stat info = {};
    ASSERT_EQ(stat(file.c_str(), &info), 0) << file;
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    const std::string secret = *vaultsim::ReadFile(file);

    EXPECT_NE(SecretFile(Arc("wrong")), file);
    const Reply answer = Arc(secret);
    EXPECT_EQ(answer.status, 200);
    EXPECT_TRUE(answer.json().contains("access_token"));
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(Arc(secret).status, 401);
    EXPECT_EQ(Identity("arc", kPath + "2018-02-01", {{"Metadata", "true"}}).status, 400);

    Control("PUT", "/arc", {{"realmPrefix", "Z:"}});
    EXPECT_EQ(SecretFile(Arc()).substr(0, 3), "Z:/");
}
