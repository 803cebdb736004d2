#include "vaultsim/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <stdexcept>

namespace vaultsim {

namespace {

VaultOption ParseVault(const std::string& text)
{
    const size_t colon = text.find(':');
    const std::string tier = colon == std::string::npos ? "premium" : text.substr(colon + 1);
    if (tier != "premium" && tier != "standard")
        throw CLI::ValidationError("--vault", "unknown tier: " + tier);
    return {text.substr(0, colon), tier == "premium"};
}

void AddIdentities(CLI::App& app, Options& options)
{
    app.add_option("--tenant", options.tenant, "the directory's tenant");
    app.add_option("--client-id", options.clientId, "the application that may sign in");
    app.add_option("--client-secret", options.clientSecret, "the application's secret");
    app.add_option("--oid", options.oid, "the object id in the tokens");
}

void AddListeners(CLI::App& app, Options& options)
{
    app.add_option("--address", options.address,
                   "the IPv4 address to listen on; the control interface stays on 127.0.0.1")
        ->check(CLI::ValidIPV4);
    const struct {
        const char* name;
        int& port;
        const char* text;
    } rows[] = {{"--control-port", options.controlPort, "port of the control interface"},
                {"--listen-tls", options.tlsPort, "port of the vaults and of sign-in"},
                {"--http-port", options.httpPort, "port of the instance metadata service"},
                {"--arc-port", options.arcPort, "port of the Arc identity service"}};
    for (const auto& row : rows)
        app.add_option(row.name, row.port, row.text)->check(CLI::Range(0, 65535))->type_name("PORT");
}

void AddAll(CLI::App& app, Options& options)
{
    app.option_defaults()->take_last()->always_capture_default();
    app.add_option("--dir", options.directory, "folder for the certificate authority and the env file")
        ->required()
        ->type_name("DIR");
    app.add_option_function<std::vector<std::string>>(
           "--vault",
           [&options](const std::vector<std::string>& vaults) {
               options.vaults.clear();
               std::transform(vaults.begin(), vaults.end(), std::back_inserter(options.vaults), ParseVault);
           },
           "a vault, premium (default) or standard; repeat for more. Without it: contoso-keys")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false)
        ->type_name("NAME[:TIER]");
    AddIdentities(app, options);
    AddListeners(app, options);
    app.add_flag("--arc", options.arc, "put the Arc identity service in the env file");
    app.add_flag("--rsa", options.rsa, "use RSA keys instead of EC keys for the server certificates");
    app.add_flag("--close-tls", options.closeTls, "close each TLS connection after its first response");
    app.add_flag("--quiet", options.quiet, "no hint on standard error");
    app.footer("Port 0 picks any free port.");
}

}  // namespace

Options ParseOptions(std::vector<std::string> arguments, std::string& help)
{
    Options options;
    CLI::App app("Simulates an Azure Key Vault, its sign-in endpoint and the managed identity services.", "vaultsim");
    AddAll(app, options);
    std::reverse(arguments.begin(), arguments.end());  // the order that CLI11 expects in a vector
    try {
        app.parse(std::move(arguments));
    } catch (const CLI::CallForHelp&) {
        help = app.help();
    } catch (const CLI::ParseError& error) {
        throw std::invalid_argument(error.what());
    }
    return options;
}

}  // namespace vaultsim
