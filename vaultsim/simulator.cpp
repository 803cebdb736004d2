#include "vaultsim/simulator.h"

#include <filesystem>

#include "vaultsim/files.h"

namespace vaultsim {

namespace {

// Answers contain the directory's path, so it must be valid in any working directory.
Options WithAbsoluteDirectory(Options options)
{
    options.directory = std::filesystem::absolute(options.directory).lexically_normal().string();
    while (options.directory.size() > 1 && options.directory.back() == '/')
        options.directory.pop_back();
    return options;
}

std::string Quote(const std::string& text)
{
    std::string quoted = "'";
    for (char c : text)
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    return quoted + "'";
}

}  // namespace

Simulator::Simulator(const Options& given)
    : options(WithAbsoluteDirectory(given)),
      settings(InitialSettings()),
      tokens_(options.tenant),
      signIn_(options, tokens_, settings, counts),
      service_(vaults, signIn_, tokens_, settings, pauser)
{
    const std::string& directory = options.directory;
    MakeDirectory(directory);
    std::filesystem::remove_all(directory + "/arc");
    MakeDirectory(directory + "/arc");
    MakeDirectory(directory + "/root");
    authority = std::make_unique<Authority>(directory, options.rsa);
    identity_ = std::make_unique<Identity>(options, tokens_, settings, counts, directory + "/arc");

    const EndpointContext context{options.address, options.closeTls, journal, counts, faults, pauser, settings};
    tls_ = std::make_unique<Endpoint>("tls", options.tlsPort, authority.get(), context,
                                      [this](const Call& call) { return service_.Handle(call); });
    http_ = std::make_unique<Endpoint>("http", options.httpPort, nullptr, context, [this](const Call& call) {
        return AnswerOf([&] { return identity_->HandleMetadata(call); });
    });
    arc_ = std::make_unique<Endpoint>("arc", options.arcPort, nullptr, context, [this](const Call& call) {
        return AnswerOf([&] { return identity_->HandleArc(call); });
    });
    Reset();
}

Simulator::~Simulator()
{
    pauser.Stop();
}

Settings Simulator::InitialSettings() const
{
    Settings initial;
    initial.tokens.oid = options.oid;
    return initial;
}

void Simulator::Reset()
{
    faults.Clear();
    settings.Update([&](Settings& current) { current = InitialSettings(); });
    vaults.Clear();
    for (const VaultOption& vault : options.vaults)
        vaults.Add(vault.name, vault.premium);
    authority->Select("good");
    for (Endpoint* endpoint : {tls_.get(), http_.get(), arc_.get()})
        endpoint->Up();
    journal.Clear();
    counts.Clear();
}

Endpoint* Simulator::FindEndpoint(const std::string& name)
{
    for (Endpoint* endpoint : {tls_.get(), http_.get(), arc_.get()}) {
        if (endpoint->name() == name)
            return endpoint;
    }
    return nullptr;
}

std::string Simulator::ReadyLine(int controlPort) const
{
    return "ready control=" + std::to_string(controlPort) + " tls=" + std::to_string(tls_->port()) +
           " http=" + std::to_string(http_->port()) + " arc=" + std::to_string(arc_->port()) +
           " dir=" + options.directory;
}

void Simulator::WriteEnvironment(int controlPort) const
{
    const auto local = [](const char* from, const Endpoint& endpoint) {
        return std::string(from) + ":127.0.0.1:" + std::to_string(endpoint.port());
    };
    std::vector<std::pair<std::string, std::string>> variables = {
        {"KELVARO_ROOT", options.directory + "/root"},
        {"KELVARO_CONNECT_TO", local(":443", *tls_) + " " + local(":80", *http_) + " " + local(":40342", *arc_)},
        {"SSL_CERT_FILE", options.directory + "/ca.pem"},
        {"VAULTSIM_CONTROL", std::to_string(controlPort)},
        {"VAULTSIM_VAULT", options.vaults.front().name},
        {"VAULTSIM_TENANT", options.tenant},
        {"VAULTSIM_CLIENT_ID", options.clientId},
        {"VAULTSIM_CLIENT_SECRET", options.clientSecret},
        {"VAULTSIM_OID", options.oid}};
    if (options.arc)
        variables.emplace_back("IDENTITY_ENDPOINT", "http://localhost:40342/metadata/identity/oauth2/token");
    std::string text;
    for (const auto& [name, value] : variables)
        text += "export " + name + "=" + Quote(value) + "\n";
    WriteFile(options.directory + "/env", text, 0600);
}

}  // namespace vaultsim
