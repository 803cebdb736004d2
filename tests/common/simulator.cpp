#include "tests/common/simulator.h"

#include <stdexcept>

#include "tests/common/http_call.h"

Simulator& Simulator::Get()
{
    static Simulator instance;
    return instance;
}

json Simulator::Control(const std::string& method, const std::string& path, const json& body)
{
    const std::string text = body.is_null() ? "" : body.dump();
    HttpCall call;
    call.port = static_cast<unsigned short>(controlPort_);
    call.path = path;
    call.verb = method;
    call.headers = "Content-Type: application/json\r\n";
    call.body = text;
    const HttpReply reply = Perform(call);
    if (reply.status / 100 != 2 || !reply.failed.empty())
        throw std::runtime_error("control call " + method + " " + path + ": " + Outcome(reply) + " " + reply.body);
    const json parsed = json::parse(reply.body, nullptr, false);
    return parsed.is_discarded() ? json(reply.body) : parsed;
}

void Simulator::Reset()
{
    Control("POST", "/reset");
    Control("PUT", "/arc", {{"realmPrefix", drive_}});
}

json Simulator::Journal()
{
    return Control("GET", "/journal")["requests"];
}

std::vector<std::string> Simulator::VaultRequests()
{
    std::vector<std::string> requests;
    for (const json& request : Journal()) {
        const std::string host = request.value("host", "");
        if (host.find(".vault.azure.net") != std::string::npos)
            requests.push_back(request.value("method", "") + " " + request.value("target", ""));
    }
    return requests;
}

void Simulator::ClearJournal()
{
    Control("DELETE", "/journal");
}

int Simulator::SignIns()
{
    return Control("GET", "/counts").value("signins", -1);
}

void Simulator::Fault(const json& fault)
{
    Control("POST", "/faults", fault);
}

void Simulator::AddKey(const std::string& vault, const json& key)
{
    Control("POST", "/vaults/" + vault + "/keys", key);
}

std::string Simulator::PublicKeyPem(const std::string& vault, const std::string& name)
{
    return Control("GET", "/vaults/" + vault + "/keys/" + name + "/pem").get<std::string>();
}
