#include "tests/vaultsim/sim_test.h"

#include <csignal>
#include <filesystem>
#include <fstream>

namespace {

// The simulator and its directory, for the life of the program.
struct Instance {
    std::string directory;
    std::unique_ptr<vaultsim::Simulator> simulator;

    Instance()
    {
        std::signal(SIGPIPE, SIG_IGN);
        directory = (std::filesystem::temp_directory_path() / "vaultsim-tests-XXXXXX").string();
        if (!mkdtemp(directory.data()))
            throw std::runtime_error("no directory");
        vaultsim::Options options;
        options.directory = directory;
        options.vaults = {{"contoso-keys", true}, {"fabrikam", false}};
        simulator = std::make_unique<vaultsim::Simulator>(options, [] {});
    }
    ~Instance()
    {
        simulator.reset();
        std::filesystem::remove_all(directory);
    }
};

}  // namespace

std::string Reply::Outcome() const
{
    const Json answer = json();
    const Json error = answer.is_object() ? answer.value("error", Json()) : Json();
    std::string text = std::to_string(status);
    if (error.is_string())
        text += " " + error.get<std::string>();
    if (error.is_object())
        text += " " + error.value("code", "");
    if (error.is_object() && error.contains("innererror"))
        text += " " + error["innererror"].value("code", "");
    return text;
}

vaultsim::Simulator& SimTest::Sim()
{
    static Instance instance;
    return *instance.simulator;
}

Reply SimTest::Send(httplib::ClientImpl& client, const std::string& method, const std::string& target,
                    const httplib::Headers& headers, const std::string& body)
{
    httplib::Request request;
    request.method = method;
    request.path = target;
    request.headers = headers;
    request.body = body;
    client.set_url_encode(false);
    client.set_read_timeout(30);
    const httplib::Result result = client.send(request);
    return result ? Reply{result->status, result->body, result->headers} : Reply();
}

Json SimTest::Control(const std::string& method, const std::string& path, const Json& body)
{
    httplib::ClientImpl client("127.0.0.1", Sim().controlPort());
    const Reply reply = Send(client, method, path, {{"Content-Type", "application/json"}}, body.dump());
    EXPECT_EQ(reply.status, 200) << method << " " << path << " " << reply.body;
    return reply.json();
}

std::unique_ptr<httplib::SSLClient> SimTest::Client(const std::string& host)
{
    auto client = std::make_unique<httplib::SSLClient>(host, Port("tls"));
    client->set_hostname_addr_map({{host, "127.0.0.1"}});
    client->set_ca_cert_path((Sim().options.directory + "/ca.pem").c_str());
    return client;
}

Reply SimTest::Vault(const std::string& method, const std::string& path, const Json& body, const std::string& vault)
{
    const std::string query = path.find('?') == std::string::npos ? "?api-version=7.0" : "";
    const httplib::Headers headers = {{"Authorization", "Bearer " + Token()},
                                      {"Content-Type", "application/json; charset=utf-8"}};
    return Send(*Client(vault + ".vault.azure.net"), method, path + query, headers, body.is_null() ? "" : body.dump());
}

std::string SimTest::SignInForm()
{
    const vaultsim::Options& options = Sim().options;
    return "resource=https://vault.azure.net&grant_type=client_credentials&client_id=" + options.clientId +
           "&client_secret=" + options.clientSecret;
}

Reply SimTest::SignIn(const std::string& body, const std::string& path)
{
    return Send(*Client("login.microsoftonline.com"), "POST",
                path.empty() ? "/" + Sim().options.tenant + "/oauth2/token" : path,
                {{"Content-Type", "application/x-www-form-urlencoded"}}, body);
}

std::string SimTest::Token()
{
    static const std::string token = SignIn(SignInForm()).json().value("access_token", "");
    return token;
}

Reply SimTest::Identity(const char* listener, const std::string& target, const httplib::Headers& headers)
{
    httplib::ClientImpl client("127.0.0.1", Port(listener));
    return Send(client, "GET", target, headers, "");
}

Json Sample(const std::string& name)
{
    std::ifstream own(VAULTSIM_SAMPLES "/" + name + ".json");
    std::ifstream shared(SERVICE_SAMPLES "/" + name + ".json");
    return Json::parse(own ? own : shared);
}

std::string Shape(const Json& json)
{
    if (json.is_array())
        return "[" + (json.empty() ? "" : Shape(json.front())) + "]";
    if (!json.is_object())
        return json.type_name();
    std::string shape;
    for (const auto& [name, value] : json.items())
        shape += (shape.empty() ? "" : " ") + name + ":" + Shape(value);
    return "{" + shape + "}";
}
