// Checks 6 to 10: the network path to the services.
#include <cstdlib>

#include "kelvaroctl/doctor/doctor.h"
#include "kelvaroctl/doctor/surroundings.h"

namespace kelvaroctl {

static bool IsPrivate(const std::string& address)
{
    for (const char* begin : {"10.", "127.", "192.168.", "169.254.", "fc", "fd", "fe8", "::1"}) {
        if (address.rfind(begin, 0) == 0)
            return true;
    }
    const long second = address.rfind("172.", 0) == 0 ? std::strtol(address.c_str() + 4, nullptr, 10) : 0;
    return second >= 16 && second <= 31;
}

// "proxy.contoso.com:8080" of a proxy as it is configured, without its user name and password; empty for none.
static std::string ProxyAddress(const std::string& host, bool secure)
{
    std::string proxy = ProxyFor(host, secure);
    const size_t scheme = proxy.find("://");
    if (scheme != std::string::npos)
        proxy.erase(0, scheme + 3);
    proxy = proxy.substr(0, proxy.find('/'));
    return proxy.substr(proxy.rfind('@') + 1);
}

// The first line of the proxy's answer when it is asked to connect to a host.
static std::string AskProxy(const Facts& facts, const std::string& proxy, const std::string& host, std::string* problem)
{
    const size_t colon = proxy.rfind(':');
    const long port =
        colon == std::string::npos ? INTERNET_DEFAULT_HTTP_PORT : std::strtol(proxy.c_str() + colon + 1, nullptr, 10);
    const auto endpoints = Resolve(proxy.substr(0, colon), static_cast<INTERNET_PORT>(port), problem);
    if (endpoints.empty())
        return "";
    std::string answer;
    *problem = Connect(endpoints[0], facts.LeftMs(),
                       "CONNECT " + host + ":443 HTTP/1.1\r\nHost: " + host + ":443\r\n\r\n", &answer);
    return answer.substr(0, answer.find('\r'));
}

static Outcome JudgeProxy(const Facts& facts, const std::string& proxy, const std::string& host)
{
    std::string problem;
    const std::string line = AskProxy(facts, proxy, host, &problem);
    const std::string found = "through " + proxy;
    if (!problem.empty())
        return Failed(found, "the proxy can't be reached: " + problem, "correct the proxy, or exempt " + host);
    const std::string status = line.size() > 12 ? line.substr(9, 3) : "";
    if (status == "407") {
        return Failed(found, "the proxy asks for a name and password (407), which isn't supported",
                      "let this machine through without them, or exempt " + host);
    }
    if (status != "200")
        return Failed(found, "the proxy doesn't connect to " + host + ": " + line, "allow it, or exempt " + host);
    return Good(found);
}

// Where requests to the identity services go; empty if they go directly.
static std::string ProxyOfIdentity()
{
    std::string proxy;
    for (const char* host : {"169.254.169.254", "localhost", "127.0.0.1"})
        proxy = proxy.empty() ? ProxyAddress(host, false) : proxy;
    return proxy;
}

Outcome CheckProxy(Facts& facts)
{
    const std::string host = facts.vault.empty() ? "vault.azure.net" : facts.VaultHost();
    Outcome outcome = Good("none");
    for (const std::string& asked :
         {(facts.signInMethods & kSignsInAsClient) ? std::string(kSignInHost) : host, host}) {
        const std::string proxy = ProxyAddress(asked, true);
        if (!proxy.empty() && outcome.state == State::Ok)
            outcome = JudgeProxy(facts, proxy, asked);
    }
    const std::string seen = (facts.signInMethods & kSignsInAsIdentity) ? ProxyOfIdentity() : "";
    if (seen.empty() || outcome.state == State::Fail)
        return outcome;
    return Warned("requests to the identity services go through " + seen,
                  "the proxy sees this machine's token, and the secret of its Arc agent",
                  "exempt 169.254.169.254, 127.0.0.1 and localhost from the proxy");
}

static Outcome CheckName(const std::string& host, bool isVault, std::vector<Endpoint>* endpoints)
{
    if (!ProxyFor(host, true).empty())
        return NotNeeded("the proxy looks it up");
    std::string problem;
    *endpoints = Resolve(host, INTERNET_DEFAULT_HTTPS_PORT, &problem);
    if (endpoints->empty()) {
        return Failed(host + ": " + problem,
                      isVault ? "there is no vault of this name, or this machine's DNS doesn't answer"
                              : "this machine's DNS doesn't answer, or doesn't know public names",
                      isVault ? "is KeyVault spelt right? With a private endpoint: link its DNS zone to this network"
                              : "correct the DNS, or name a proxy");
    }
    std::string found = host + ":";
    for (const Endpoint& endpoint : *endpoints)
        found += " " + endpoint.address + (IsPrivate(endpoint.address) ? " (private)" : "");
    return Good(found);
}

Outcome CheckPort(const Facts& facts, const std::vector<Endpoint>& endpoints)
{
    if (endpoints.empty())
        return NotNeeded("through the proxy");
    DWORD left = static_cast<DWORD>(endpoints.size());
    bool open = false;
    bool closed = false;  // IPv6 is often not routed, which doesn't matter if another address is open
    std::string found;
    for (const Endpoint& endpoint : endpoints) {
        const std::string problem = Connect(endpoint, facts.LeftMs() / left--);
        AddPart(&found, endpoint.address + " port " + std::to_string(endpoint.port) +
                            (problem.empty() ? " is open" : ": " + problem));
        open = open || problem.empty();
        closed = closed || (!problem.empty() && endpoint.address.find(':') == std::string::npos);
    }
    if (!open)
        return Failed(found, "a firewall refuses or drops the connection", "allow outbound connections to port 443");
    return closed ? Warned(found, "not every address can be reached", "allow outbound connections to all of them")
                  : Good(found);
}

namespace {
struct CertificateFault {
    DWORD flag;
    const char* cause;
    const char* fix;
};
}  // namespace

constexpr CertificateFault kFaults[] = {
    {SECURITY_FLAG_IGNORE_UNKNOWN_CA, "the root isn't trusted here: a proxy that inspects TLS",
     "trust the issuer's root on this machine, or exempt the host from inspection"},
    {SECURITY_FLAG_IGNORE_CERT_DATE_INVALID, "the certificate has expired or isn't valid yet",
     "set this machine's clock; if it is right, the certificate is a proxy's"},
    {SECURITY_FLAG_IGNORE_CERT_CN_INVALID, "the certificate is for another name",
     "the name leads to the wrong machine: DNS, or a proxy"},
};

// Finds what is wrong with a certificate: a request that ignores all faults except one fails if the certificate has
// that one.
static Outcome ExplainRefusal(WebRequest request, const Facts& facts)
{
    constexpr DWORD kAll =
        SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID | SECURITY_FLAG_IGNORE_CERT_CN_INVALID;
    request.ignoredCertificateErrors = kAll;
    const WebAnswer seen = Ask(request, facts.LeftMs());
    if (seen.issuer.empty()) {
        return Failed(request.host + ": " + WebErrorText(seen.error), "no common protocol or cipher",
                      "TLS 1.2 must be allowed on this machine and on the way");
    }
    const std::string found = request.host + ": issuer " + seen.issuer + ", until " + seen.expires;
    for (const CertificateFault& fault : kFaults) {
        request.ignoredCertificateErrors = kAll & ~fault.flag;
        if (Ask(request, facts.LeftMs()).error)
            return Failed(found, std::string(fault.cause) + "; issuer: " + seen.issuer, fault.fix);
    }
    return Failed(found, "the platform refuses the certificate", "look at it in a browser on this machine");
}

// Which directory the vault asks for: Bearer authorization="https://login.microsoftonline.com/TENANT", resource=...
static std::string TenantIn(const std::string& challenge)
{
    const std::string url = challenge.substr(0, challenge.find(','));
    const size_t slash = url.rfind('/');
    return slash == std::string::npos ? "" : url.substr(slash + 1, url.find('"', slash) - slash - 1);
}

Outcome CheckTls(const WebRequest& request, Facts* facts)
{
    constexpr DWORD kSecureChannelError = 12157;
    const WebAnswer answer = Ask(request, facts->LeftMs());
    if (answer.error == static_cast<DWORD>(ERROR_WINHTTP_SECURE_FAILURE) || answer.error == kSecureChannelError)
        return ExplainRefusal(request, *facts);
    if (answer.error) {
        return Failed(request.host + ": " + WebErrorText(answer.error),
                      "something takes the connection and doesn't answer, or breaks it",
                      "a firewall, a load balancer or a proxy on the way");
    }
    NoteTime(answer, facts);
    facts->vaultTenant = TenantIn(answer.Field("WWW-Authenticate"));
    return Good("issuer " + answer.issuer + ", until " + answer.expires);
}

Outcome CheckSignInName(Facts& facts)
{
    return CheckName(kSignInHost, false, &facts.signInEndpoints);
}

Outcome CheckVaultName(Facts& facts)
{
    if (facts.vault.empty())
        return Blocked(facts.vaultFromIdentity ? "the vault is named after the identity, which isn't known"
                                               : "KeyVault isn't a vault's name");
    return CheckName(facts.VaultHost(), true, &facts.vaultEndpoints);
}

void NoteTime(const WebAnswer& answer, Facts* facts)
{
    if (const int64_t time = answer.Time()) {
        facts->serviceTime = time;
        facts->askedAt = _time64(nullptr);
    }
}

Outcome CheckClock(Facts& facts)
{
    if (!facts.serviceTime)
        return NotNeeded("no answer stated the time");
    const int64_t off = facts.askedAt - facts.serviceTime;
    const std::string found =
        std::to_string(std::abs(off)) + " s " + (off < 0 ? "behind" : "ahead of") + " the services";
    const std::string fix = "set this machine's clock, and keep it right by NTP";
    if (std::abs(off) > 300)
        return Failed(found, "with this clock, tokens and certificates count as expired or not yet valid", fix);
    return std::abs(off) > 60 ? Warned(found, "the clock is wrong", fix) : Good(found);
}

}  // namespace kelvaroctl
