#include "vaultsim/control.h"

#include <stdexcept>

#include "vaultsim/control_vaults.h"
#include "vaultsim/issue.h"

namespace vaultsim {

namespace {

// Like the default, but for SO_REUSEPORT, with which two simulators would share a port without a word.
void SetSocketOptions(socket_t socket)
{
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

void SetBody(httplib::Response& response, int status, const Json& json)
{
    response.status = status;
    response.set_content(json.dump(-1, ' ', false, Json::error_handler_t::replace), "application/json; charset=utf-8");
}

}  // namespace

Control::Control(Simulator& simulator, int port, std::function<void()> stop) : simulator_(simulator)
{
    server_.set_socket_options(SetSocketOptions);
    // An idle connection would hold up the end of the simulator.
    server_.set_keep_alive_max_count(1);
    AddJournal();
    AddFaults();
    AddSettings();
    AddListeners();
    AddVaults();
    AddLife(std::move(stop));
    port_ = port == 0 ? server_.bind_to_any_port("127.0.0.1") : server_.bind_to_port("127.0.0.1", port) ? port : -1;
    if (port_ <= 0)
        throw std::runtime_error("the control port " + std::to_string(port) + " is not to be had");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running())
        std::this_thread::yield();
}

Control::~Control()
{
    server_.stop();
    thread_.join();
}

httplib::Server::Handler Control::Wrap(Handler handler) const
{
    return [handler = std::move(handler)](const httplib::Request& request, httplib::Response& response) {
        std::vector<std::string> path;
        for (size_t i = 1; i < request.matches.size(); i++)
            path.push_back(request.matches[i]);
        try {
            SetBody(response, 200, handler(path, request));
        } catch (const std::exception& error) {
            SetBody(response, 400, {{"error", error.what()}});
        }
    };
}

void Control::Put(const char* pattern, Change change)
{
    server_.Put(pattern, Wrap([change = std::move(change)](const auto&, const httplib::Request& request) {
                    change(Json::parse(request.body));
                    return Json::object();
                }));
}

void Control::AddJournal()
{
    server_.Get("/journal", Wrap([this](const auto&, const httplib::Request& request) {
                    const std::string since = request.get_param_value("since");
                    return simulator_.journal.Read(since.empty() ? 0 : std::stoull(since));
                }));
    server_.Delete("/journal", Wrap([this](const auto&, const httplib::Request&) {
                       simulator_.journal.Clear();
                       return Json::object();
                   }));
    server_.Get("/counts", Wrap([this](const auto&, const httplib::Request&) { return simulator_.counts.Read(); }));
    server_.Delete("/counts", Wrap([this](const auto&, const httplib::Request&) {
                       simulator_.counts.Clear();
                       return Json::object();
                   }));
}

void Control::AddFaults()
{
    server_.Post("/faults", Wrap([this](const auto&, const httplib::Request& request) {
                     simulator_.faults.Add(ParseFault(Json::parse(request.body)));
                     return Json::object();
                 }));
    server_.Delete("/faults", Wrap([this](const auto&, const httplib::Request&) {
                       simulator_.faults.Clear();
                       return Json::object();
                   }));
}

void Control::AddSettings()
{
    SettingsBox& box = simulator_.settings;
    Put("/latency", [&box](const Json& body) { box.Update([&](Settings& all) { Apply(all.latency, body); }); });
    Put("/tokens", [&box](const Json& body) { box.Update([&](Settings& all) { Apply(all.tokens, body); }); });
    Put("/paging", [&box](const Json& body) { box.Update([&](Settings& all) { Apply(all.paging, body); }); });
    Put("/deletion", [&box](const Json& body) {
        box.Update([&](Settings& all) { all.beingDeletedAnswers = body.at("beingDeletedAnswers").get<int>(); });
    });
    Put("/arc", [&box](const Json& body) {
        box.Update([&](Settings& all) { all.arcRealmPrefix = body.at("realmPrefix").get<std::string>(); });
    });
}

void Control::AddListeners()
{
    Put("/certificate", [this](const Json& body) { simulator_.authority->Select(body.at("mode").get<std::string>()); });
    Put("/listener", [this](const Json& body) {
        Front* front = simulator_.FindFront(body.at("name").get<std::string>());
        const std::string mode = body.at("mode").get<std::string>();
        if (!front || (mode != "up" && mode != "down"))
            throw std::invalid_argument("no such listener or mode");
        mode == "up" ? front->Up() : front->Down();
    });
}

void Control::AddVaults()
{
    const std::string vault = "/vaults/([^/]+)";
    const auto found = [this](const std::string& name) {
        const std::shared_ptr<Vault> known = simulator_.vaults.Find(name);
        if (!known)
            throw std::invalid_argument("no such vault: " + name);
        return known;
    };
    server_.Put(vault, Wrap([this](const auto& path, const httplib::Request& request) {
                    const std::string tier = Json::parse(request.body).value("tier", "premium");
                    if (tier != "standard" && tier != "premium")
                        throw std::invalid_argument("no such tier: " + tier);
                    simulator_.vaults.Add(path[0], tier == "premium");
                    return Json::object();
                }));
    server_.Delete(vault, Wrap([this](const auto& path, const httplib::Request&) {
                       return Json{{"removed", simulator_.vaults.Remove(path[0])}};
                   }));
    server_.Get(vault,
                Wrap([found](const auto& path, const httplib::Request&) { return DescribeVault(*found(path[0])); }));
    server_.Post(vault + "/seed", Wrap([found](const auto& path, const httplib::Request& request) {
                     return SeedKeys(*found(path[0]), Json::parse(request.body));
                 }));
    server_.Post(vault + "/keys", Wrap([found](const auto& path, const httplib::Request& request) {
                     return AddKey(*found(path[0]), Json::parse(request.body));
                 }));
    server_.Post(vault + "/certificates", Wrap([found](const auto& path, const httplib::Request& request) {
                     return AddCertificates(*found(path[0]), Json::parse(request.body));
                 }));
    server_.Post(vault + "/issue", Wrap([found](const auto& path, const httplib::Request& request) {
                     return IssueCertificate(*found(path[0]), Json::parse(request.body));
                 }));
    server_.Get(vault + "/keys/([^/]+)/pem", [found](const httplib::Request& request, httplib::Response& response) {
        try {
            response.set_content(KeyPem(*found(request.matches[1]), request.matches[2]), "application/x-pem-file");
        } catch (const std::exception& error) {
            SetBody(response, 404, {{"error", error.what()}});
        }
    });
}

void Control::AddLife(std::function<void()> stop)
{
    const auto life = [this, stop = std::move(stop)](const std::string& path) {
        if (path == "/reset")
            simulator_.Reset();
        else
            stop();
        return Json::object();
    };
    // Ahead of the routing, where a POST without a length is no error yet: these two need no entity.
    server_.set_pre_routing_handler([life](const httplib::Request& request, httplib::Response& response) {
        if (request.method != "POST" || (request.path != "/reset" && request.path != "/stop") ||
            request.has_header("Content-Length"))
            return httplib::Server::HandlerResponse::Unhandled;
        SetBody(response, 200, life(request.path));
        return httplib::Server::HandlerResponse::Handled;
    });
    server_.Post("/(?:reset|stop)",
                 Wrap([life](const auto&, const httplib::Request& request) { return life(request.path); }));
}

}  // namespace vaultsim
