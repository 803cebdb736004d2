#include "vaultsim/control.h"

#include <httplib.h>

#include <stdexcept>

#include "vaultsim/control_vaults.h"
#include "vaultsim/issue.h"
#include "vaultsim/key_material.h"
#include "vaultsim/refusal.h"
#include "vaultsim/simulator.h"

namespace vaultsim {

namespace {

using Path = std::vector<std::string>;  // what the groups of a route's pattern matched

// The default without SO_REUSEPORT, which would let two simulators share a port unnoticed.
void SetSocketOptions(socket_t socket)
{
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

void SetBody(httplib::Response& response, int status, const Json& json)
{
    response.status = status;
    response.set_content(JsonAnswer(status, json).body, "application/json; charset=utf-8");
}

Path PathOf(const httplib::Request& request)
{
    return {std::next(request.matches.begin()), request.matches.end()};
}

// Responds with what `handler` returns, {} for nothing, or with 400 and the text of its exception.
template <class Handler>
void Respond(httplib::Response& response, Handler handler)
{
    try {
        if constexpr (std::is_void_v<decltype(handler())>) {
            handler();
            SetBody(response, 200, Json::object());
        } else {
            SetBody(response, 200, handler());
        }
    } catch (const std::exception& error) {
        SetBody(response, 400, {{"error", error.what()}});
    }
}

// For GET and DELETE.
template <class Handler>
httplib::Server::Handler OfPath(Handler handler)
{
    return [handler](const httplib::Request& request, httplib::Response& response) {
        Respond(response, [&] { return handler(PathOf(request)); });
    };
}

// For PUT and POST.
template <class Handler>
httplib::Server::Handler OfBody(Handler handler)
{
    return [handler](const httplib::Request& request, httplib::Response& response) {
        Respond(response, [&] { return handler(PathOf(request), Json::parse(request.body)); });
    };
}

void AddRecords(httplib::Server& server, Simulator& simulator)
{
    server.Get("/journal", [&](const httplib::Request& request, httplib::Response& response) {
        const std::string since = request.get_param_value("since");
        Respond(response, [&] { return simulator.journal.Read(since.empty() ? 0 : std::stoull(since)); });
    });
    server.Delete("/journal", OfPath([&](const Path&) { simulator.journal.Clear(); }));
    server.Get("/counts", OfPath([&](const Path&) { return simulator.counts.Read(); }));
    server.Delete("/counts", OfPath([&](const Path&) { simulator.counts.Clear(); }));
}

void AddBehaviour(httplib::Server& server, Simulator& simulator)
{
    server.Post("/faults", OfBody([&](const Path&, const Json& body) { simulator.faults.Add(ParseFault(body)); }));
    server.Delete("/faults", OfPath([&](const Path&) { simulator.faults.Clear(); }));
    for (const char* name : {"latency", "tokens", "paging", "deletion", "secret", "clock", "arc"})
        server.Put(std::string("/") + name, OfBody([&simulator, name](const Path&, const Json& body) {
                       simulator.settings.Update([&](Settings& settings) { Apply(settings, name, body); });
                   }));
    server.Put("/certificate", OfBody([&](const Path&, const Json& body) {
                   simulator.authority->Select(body.at("mode").get<std::string>());
               }));
    server.Put("/listener", OfBody([&](const Path&, const Json& body) {
                   Endpoint* endpoint = simulator.FindEndpoint(body.at("name").get<std::string>());
                   const std::string mode = body.at("mode").get<std::string>();
                   if (!endpoint || (mode != "up" && mode != "down"))
                       throw std::invalid_argument("unknown listener or mode");
                   mode == "up" ? endpoint->Up() : endpoint->Down();
               }));
}

void AddVaults(httplib::Server& server, Vaults& vaults)
{
    const std::string path = "/vaults/([^/]+)";
    const auto find = [&vaults](const std::string& name) {
        std::shared_ptr<Vault> vault = vaults.Find(name);
        if (!vault)
            throw std::invalid_argument("no such vault: " + name);
        return vault;
    };
    server.Put(path, OfBody([&vaults](const Path& matched, const Json& body) {
                   const std::string tier = body.value("tier", "premium");
                   if (tier != "standard" && tier != "premium")
                       throw std::invalid_argument("unknown tier: " + tier);
                   vaults.Add(matched[0], tier == "premium");
               }));
    server.Delete(path, OfPath([&vaults](const Path& matched) {
                      return Json{{"removed", vaults.Remove(matched[0])}};
                  }));
    server.Get(path, OfPath([find](const Path& matched) { return DescribeVault(*find(matched[0])); }));
    const std::pair<const char*, Json (*)(Vault&, const Json&)> additions[] = {
        {"/seed", SeedKeys}, {"/keys", AddKey}, {"/certificates", AddCertificates}, {"/issue", IssueCertificate}};
    for (const auto& [suffix, add] : additions)
        server.Post(path + suffix, OfBody([find, add = add](const Path& matched, const Json& body) {
                        return add(*find(matched[0]), body);
                    }));
    server.Get(path + "/keys/([^/]+)/pem", [find](const httplib::Request& request, httplib::Response& response) {
        try {
            const Pkey key = CurrentKey(*find(request.matches[1]), request.matches[2]);
            response.set_content(PublicPem(key.get()), "application/x-pem-file");
        } catch (const std::exception& error) {
            SetBody(response, 404, {{"error", error.what()}});
        }
    });
}

void AddResetAndStop(httplib::Server& server, Simulator& simulator, std::function<void()> stop)
{
    const auto handle = [&simulator, stop = std::move(stop)](const httplib::Request& request,
                                                             httplib::Response& response) {
        Respond(response, [&] { request.path == "/reset" ? simulator.Reset() : stop(); });
    };
    server.Post("/(?:reset|stop)", handle);
    // cpp-httplib refuses a POST without a length, but these two need no body: handle them before its routing.
    server.set_pre_routing_handler([handle](const httplib::Request& request, httplib::Response& response) {
        if (request.method != "POST" || (request.path != "/reset" && request.path != "/stop") ||
            request.has_header("Content-Length"))
            return httplib::Server::HandlerResponse::Unhandled;
        handle(request, response);
        return httplib::Server::HandlerResponse::Handled;
    });
}

}  // namespace

Control::Control(Simulator& simulator, int port, std::function<void()> stop)
    : server_(std::make_unique<httplib::Server>())
{
    server_->set_socket_options(SetSocketOptions);
    // An idle connection would delay the simulator's exit.
    server_->set_keep_alive_max_count(1);
    AddRecords(*server_, simulator);
    AddBehaviour(*server_, simulator);
    AddVaults(*server_, simulator.vaults);
    AddResetAndStop(*server_, simulator, std::move(stop));
    port_ = port == 0 ? server_->bind_to_any_port("127.0.0.1") : server_->bind_to_port("127.0.0.1", port) ? port : -1;
    if (port_ <= 0)
        throw std::runtime_error("cannot listen on control port " + std::to_string(port));
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    while (!server_->is_running())
        std::this_thread::yield();
}

Control::~Control()
{
    server_->stop();
    thread_.join();
}

}  // namespace vaultsim
