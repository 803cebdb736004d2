#include "vaultsim/options.h"

#include <arpa/inet.h>

#include <functional>
#include <map>
#include <stdexcept>

namespace vaultsim {

const char kUsage[] =
    "vaultsim --dir DIR [option]...\n"
    "\n"
    "A stand-in for the vault, its sign-in endpoint and the identity services, on 127.0.0.1.\n"
    "\n"
    "  --dir DIR                  where the certificate authority and the file env are kept\n"
    "  --vault NAME[:TIER]        a vault, premium or standard; may be repeated (contoso-keys:premium)\n"
    "  --tenant T                 the directory's tenant\n"
    "  --client-id ID             the application that may sign in\n"
    "  --client-secret S          its secret\n"
    "  --oid GUID                 the object id in its tokens\n"
    "  --address ADDRESS          an IPv4 address to listen on (127.0.0.1); the control interface stays where it is\n"
    "  --control-port PORT        port of the control interface; this and the others: 0 for any free one\n"
    "  --listen-tls PORT          port of the vaults and of sign-in\n"
    "  --http-port PORT           port of the instance metadata service\n"
    "  --arc-port PORT            port of the Arc identity service\n"
    "  --arc                      name the Arc identity service in the file env\n"
    "  --rsa                      server certificates with RSA keys in place of curve keys\n"
    "  --close-tls                close each connection with TLS after its first answer\n"
    "  --quiet                    no hint on standard error\n";

namespace {

int ParsePort(const std::string& text)
{
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos ||
        std::stoi(text) > 65535)
        throw std::invalid_argument("not a port: " + text);
    return std::stoi(text);
}

std::string ParseAddress(const std::string& text)
{
    in_addr parsed = {};
    if (inet_pton(AF_INET, text.c_str(), &parsed) != 1)
        throw std::invalid_argument("not an address: " + text);
    return text;
}

VaultOption ParseVault(const std::string& text)
{
    const size_t colon = text.find(':');
    const std::string tier = colon == std::string::npos ? "premium" : text.substr(colon + 1);
    if (tier != "premium" && tier != "standard")
        throw std::invalid_argument("not a tier: " + tier);
    return {text.substr(0, colon), tier == "premium"};
}

}  // namespace

Options ParseOptions(const std::vector<std::string>& arguments, bool& help)
{
    Options options;
    const std::map<std::string, std::function<void(const std::string&)>> valued = {
        {"--dir", [&](const std::string& value) { options.directory = value; }},
        {"--vault", [&](const std::string& value) { options.vaults.push_back(ParseVault(value)); }},
        {"--tenant", [&](const std::string& value) { options.tenant = value; }},
        {"--client-id", [&](const std::string& value) { options.clientId = value; }},
        {"--client-secret", [&](const std::string& value) { options.clientSecret = value; }},
        {"--oid", [&](const std::string& value) { options.oid = value; }},
        {"--address", [&](const std::string& value) { options.address = ParseAddress(value); }},
        {"--control-port", [&](const std::string& value) { options.controlPort = ParsePort(value); }},
        {"--listen-tls", [&](const std::string& value) { options.tlsPort = ParsePort(value); }},
        {"--http-port", [&](const std::string& value) { options.httpPort = ParsePort(value); }},
        {"--arc-port", [&](const std::string& value) { options.arcPort = ParsePort(value); }},
    };
    const std::map<std::string, bool*> flags = {{"--arc", &options.arc},
                                                {"--rsa", &options.rsa},
                                                {"--close-tls", &options.closeTls},
                                                {"--quiet", &options.quiet},
                                                {"--help", &help}};
    for (size_t i = 0; i < arguments.size(); i++) {
        const auto flag = flags.find(arguments[i]);
        const auto value = valued.find(arguments[i]);
        if (flag != flags.end())
            *flag->second = true;
        else if (value == valued.end())
            throw std::invalid_argument("unknown option: " + arguments[i]);
        else if (i + 1 == arguments.size())
            throw std::invalid_argument("no value for " + arguments[i]);
        else
            value->second(arguments[++i]);
    }
    if (options.directory.empty() && !help)
        throw std::invalid_argument("--dir is missing");
    if (options.vaults.empty())
        options.vaults.push_back({"contoso-keys", true});
    return options;
}

}  // namespace vaultsim
