// Check 11: sign-in by each method that the settings allow.
#include <filesystem>
#include <fstream>

#include "kelvaroctl/doctor/doctor.h"

namespace kelvaroctl {

namespace {
struct DirectoryError {
    int code;  // AADSTS
    const char* cause;
    const char* fix;
};
}  // namespace

constexpr DirectoryError kDirectoryErrors[] = {
    {90002, "no such tenant", "kelvaroctl config set TenantId ID"},
    {900023, "TenantId is neither a directory's id nor its name", "kelvaroctl config set TenantId ID"},
    {700016, "no such application in this directory",
     "correct ClientId or TenantId: both must be of the same directory"},
    {7000112, "the application is disabled", "enable it in the directory"},
    {7000215, "wrong secret", "kelvaroctl config set ClientSecret: the secret's value, not its id"},
    {7000218, "no secret was sent", "kelvaroctl config set ClientSecret"},
    {7000222, "expired secret", "create a new one, then kelvaroctl config set ClientSecret"},
    {500011, "the directory doesn't know the Key Vault service", "is TenantId that of the vault's directory?"},
    {53003, "a conditional access policy blocks the sign-in", "allow this machine's address in the policy"},
};

// Of a JSON web token; null if it isn't one.
static Json ClaimsOf(const std::string& token)
{
    const std::vector<std::string_view> parts = Split(token, ".");
    if (parts.size() < 3)
        return nullptr;
    std::string text(parts[1]);
    for (char& ch : text)
        ch = ch == '-' ? '+' : ch == '_' ? '/' : ch;
    text.append((4 - text.size() % 4) % 4, '=');
    Bytes bytes;
    if (!ParseBase64(text, &bytes))
        return nullptr;
    const Json claims = Json::parse(bytes.begin(), bytes.end(), nullptr, false);
    return claims.is_object() ? claims : Json(nullptr);
}

// The vault name that the module derives from an identity.
static std::string VaultOfIdentity(const std::string& objectId)
{
    std::string name = "x";
    for (const char ch : objectId) {
        if (ch != '-')
            name += ch;
    }
    return name.size() > 24 ? name.substr(0, 24) : "";
}

Outcome NotTheService(const WebAnswer& answer, const std::string& whose, const std::string& host)
{
    return Because(Failed("status " + std::to_string(answer.status) + ", but not the " + whose + "'s answer",
                          "something else answers: a proxy, or a page to log on to the network",
                          "look at what this machine gets from " + host + " in a browser"),
                   answer.status, "");
}

static Outcome TakeToken(const WebAnswer& answer, Facts* facts)
{
    const std::string token = JsonText(answer.json, "access_token");
    if (token.empty())
        return NotTheService(answer, "service", "the host");
    const Json claims = ClaimsOf(token);
    facts->token = token;
    facts->objectId = JsonText(claims, "oid");
    facts->tokenTenant = JsonText(claims, "tid");
    if (facts->vaultFromIdentity)
        facts->vault = VaultOfIdentity(facts->objectId);
    int64_t minutes = 0;
    if (claims.is_object() && claims.contains("exp") && claims["exp"].is_number())
        minutes = (claims["exp"].get<int64_t>() - _time64(nullptr)) / 60;
    const std::string found = "object id " + facts->objectId + ", directory " + facts->tokenTenant + ", token for " +
                              std::to_string(minutes) + " minutes, vault " + facts->vault;
    return minutes > 0 ? Good(found) : Warned(found, "the token has already expired", "check this machine's clock");
}

static Outcome ExplainDirectory(const WebAnswer& answer)
{
    if (!answer.json.is_object())
        return NotTheService(answer, "service", "the host");
    const Json codes = answer.json.value("error_codes", Json::array());
    const int code = codes.is_array() && !codes.empty() && codes[0].is_number_integer() ? codes[0].get<int>() : 0;
    const std::string said = JsonText(answer.json, "error_description");
    Outcome outcome =
        Failed(said.substr(0, said.find('\r')), "the directory refuses: " + JsonText(answer.json, "error"),
               "look the code up at https://login.microsoftonline.com/error");
    for (const DirectoryError& row : kDirectoryErrors) {
        if (row.code == code) {
            outcome.cause = row.cause;
            outcome.fix = row.fix;
        }
    }
    return Because(outcome, answer.status, std::to_string(code));
}

static Outcome AskDirectory(Facts* facts)
{
    WebRequest request = {kSignInHost, "/" + facts->tenant + "/oauth2/token", "POST"};
    request.headers = "Content-Type: application/x-www-form-urlencoded\r\nAccept: application/json\r\n";
    // As the module sends it: nothing is escaped.
    request.body = std::string("resource=") + kVaultResource +
                   "&grant_type=client_credentials&client_id=" + facts->clientId + "&client_secret=" + facts->secret;
    const WebAnswer answer = Ask(request, facts->LeftMs());
    if (answer.error)
        return Failed(WebErrorText(answer.error), "the sign-in service doesn't answer", "run it again");
    NoteTime(answer, facts);
    return answer.status == 200 ? TakeToken(answer, facts) : ExplainDirectory(answer);
}

Outcome CheckClientSignIn(Facts& facts)
{
    if (facts.secret.empty())
        return Blocked("needs secret");
    Outcome outcome = AskDirectory(&facts);
    if (outcome.state == State::Fail && (facts.signInMethods & kSignsInAsIdentity)) {
        outcome.state = State::Warn;
        outcome.fix += "; the managed identity is tried next";
    }
    return outcome;
}

constexpr INTERNET_PORT kArcPort = 40342;

static WebRequest IdentityRequest(const Facts& facts)
{
    WebRequest request = {"169.254.169.254", "", "GET", "Metadata: True\r\n", "", false, INTERNET_DEFAULT_HTTP_PORT};
    WCHAR endpoint[500] = {};
    WCHAR host[200] = {};
    URL_COMPONENTS parts = {};
    parts.dwStructSize = sizeof(parts);
    parts.lpszHostName = host;
    parts.dwHostNameLength = 200;
    const DWORD length = GetEnvironmentVariableW(TEXT("IDENTITY_ENDPOINT"), endpoint, 500);
    if (length && length < 500 && WinHttpCrackUrl(endpoint, 0, ICU_DECODE, &parts)) {
        request.host = ToNarrow(host);
        request.port = parts.nPort;
    }
    request.path = std::string("/metadata/identity/oauth2/token?resource=") + kVaultResource +
                   "&api-version=" + (request.port == kArcPort ? "2020-06-01" : "2018-02-01") +
                   (facts.clientId.empty() ? "" : "&client_id=" + facts.clientId);
    return request;
}

// The file that the Arc agent's challenge names. Only a local file of the kind that the agent writes: whoever listens
// on that port gets its content.
static bool ReadArcFile(const WebAnswer& answer, std::string* path, std::string* secret)
{
    constexpr char kRealm[] = "Basic realm=";
    constexpr size_t kMostSecret = 2000;
    const std::string challenge = answer.Field("WWW-Authenticate");
    if (challenge.rfind(kRealm, 0) != 0)
        return false;
    *path = challenge.substr(sizeof(kRealm) - 1);
    const std::filesystem::path file = std::filesystem::u8path(*path);
    std::error_code ignored;
    if (file.extension() != ".key" || !file.is_absolute() || path->find("..") != std::string::npos ||
        path->rfind("\\\\", 0) == 0 || path->rfind("//", 0) == 0 || !std::filesystem::is_regular_file(file, ignored))
        return false;
    std::ifstream stream(file, std::ios::binary);
    secret->resize(kMostSecret);
    stream.read(secret->data(), kMostSecret);
    secret->resize(static_cast<size_t>(stream.gcount()));
    return !secret->empty();
}

static Outcome ExplainIdentity(const WebRequest& request, const WebAnswer& answer)
{
    const std::string where = request.host + ":" + std::to_string(request.port);
    if (answer.error) {
        return Failed(where + ": " + WebErrorText(answer.error),
                      request.port == kArcPort ? "no identity service: the Arc agent is down"
                                               : "no identity service: this isn't an Azure machine",
                      request.port == kArcPort ? "start the agent (azcmagent show)"
                                               : "install the Arc agent, or set AuthenticationType 2");
    }
    if (!answer.json.is_object())
        return NotTheService(answer, "service", "the host");
    const std::string said = JsonText(answer.json, "error_description");
    const bool none = said.find("Identity not found") != std::string::npos;
    return Because(Failed(where + ": " + JsonText(answer.json, "error") + ", " + said,
                          none ? "no such identity on this machine" : "the identity service refuses",
                          none ? "assign one to the machine, or correct ClientId" : "run it again in a minute"),
                   answer.status, JsonText(answer.json, "error"));
}

Outcome CheckIdentitySignIn(Facts& facts)
{
    if (!facts.token.empty())
        return NotNeeded("not asked: the client credentials work");
    WebRequest request = IdentityRequest(facts);
    WebAnswer answer = Ask(request, facts.LeftMs());
    if (answer.status == 401 && request.port == kArcPort) {
        std::string path;
        std::string secret;
        if (!ReadArcFile(answer, &path, &secret)) {
            return Failed("the Arc agent's file " + path + " can't be read",
                          "this account isn't in the agent's group, or the file isn't the agent's",
                          "add it to \"Hybrid agent extension applications\" (Linux: himds)");
        }
        request.headers += "Authorization: Basic " + secret + "\r\n";
        answer = Ask(request, facts.LeftMs());
    }
    if (answer.error || answer.status != 200)
        return ExplainIdentity(request, answer);
    NoteTime(answer, &facts);
    return TakeToken(answer, &facts);
}

}  // namespace kelvaroctl
