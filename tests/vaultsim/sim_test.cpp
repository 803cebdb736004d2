#include "tests/vaultsim/sim_test.h"

std::string Reply::Outcome() const
{
    const json answer = Json();
    const json refusal = answer.is_object() ? answer.value("error", json()) : json();
    std::string text = std::to_string(status);
    if (refusal.is_string())
        return text + " " + refusal.get<std::string>();
    if (refusal.is_object())
        text += " " + refusal.value("code", "");
    if (refusal.contains("innererror"))
        text += " " + refusal["innererror"].value("code", "");
    return text;
}

std::string Reply::Field(const std::string& name) const
{
    const size_t at = head.find("\r\n" + name + ": ");
    const size_t start = at + name.size() + 4;
    return at == std::string::npos ? "" : head.substr(start, head.find("\r\n", start) - start);
}

Reply SimTest::Vault(const std::string& method, const std::string& path, const std::string& body,
                     const std::string& vault)
{
    static const std::string token = SignIn(SignInForm()).Json().value("access_token", "");
    const std::string query = path.find('?') == std::string::npos ? "?api-version=7.0" : "";
    const std::string headers =
        "Authorization: Bearer " + token + "\r\nContent-Type: application/json; charset=utf-8\r\n";
    return Send({vault + ".vault.azure.net", 443, path + query, method, headers, body});
}

std::string SimTest::SignInForm()
{
    return std::string("resource=https://vault.azure.net&grant_type=client_credentials&client_id=") +
           Simulator::kClientId + "&client_secret=" + Simulator::kClientSecret;
}

Reply SimTest::SignIn(const std::string& body, const std::string& path)
{
    return Send({"login.microsoftonline.com", 443,
                 path.empty() ? std::string("/") + Simulator::kTenant + "/oauth2/token" : path, "POST",
                 "Content-Type: application/x-www-form-urlencoded\r\n", body});
}

json Sample(const std::string& name)
{
    return json::parse(ReadServiceSample(name));
}

static std::string ShapeOf(const nlohmann::ordered_json& value)
{
    if (value.is_array())
        return "[" + (value.empty() ? "" : ShapeOf(value.front())) + "]";
    if (!value.is_object())
        return value.type_name();
    std::string shape;
    for (const auto& [name, member] : value.items())
        shape += (shape.empty() ? "" : " ") + name + ":" + ShapeOf(member);
    return "{" + shape + "}";
}

std::string Shape(const std::string& text)
{
    return ShapeOf(nlohmann::ordered_json::parse(text));
}
