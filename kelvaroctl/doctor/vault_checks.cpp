// Checks 12 to 14: the vault, the rights and the key.
#include "kelvaroctl/doctor/doctor.h"
#include "kelvaroctl/doctor/signature_check.h"
#include "kelvaroctl/hash.h"
#include "kelvaroctl/personal_store.h"

namespace kelvaroctl {

WebAnswer AskVault(const Facts& facts, const std::string& path, const std::string& body)
{
    WebRequest request = {facts.VaultHost(), path + "?api-version=7.0", body.empty() ? "GET" : "POST"};
    request.headers = "Authorization: Bearer " + facts.token + "\r\nAccept: application/json\r\n";
    if (!body.empty())
        request.headers += "Content-Type: application/json\r\n";
    request.body = body;
    return Ask(request, facts.LeftMs());
}

std::string VaultCode(const WebAnswer& answer)
{
    const Json error = answer.json.is_object() ? answer.json.value("error", Json()) : Json();
    const Json inner = error.is_object() ? error.value("innererror", Json()) : Json();
    const std::string code = JsonText(inner, "code");
    return code.empty() ? JsonText(error, "code") : code;
}

namespace {
struct VaultRefusal {
    DWORD status;
    const char* code;  // NULL: any
    const char* cause;
    const char* fix;
};
}  // namespace

constexpr VaultRefusal kRefusals[] = {
    {400, nullptr, "no such vault, or not a vault's answer", "is KeyVault spelt right?"},
    {403, "ForbiddenByFirewall", "the vault's firewall keeps this machine out",
     "az keyvault network-rule add --name VAULT --ip-address ADDRESS"},
    {403, "ForbiddenByConnection", "the vault takes private connections only",
     "a private endpoint and its DNS zone for this machine's network, or public access for the vault"},
    {404, nullptr, "not found", "was it deleted?"},
    {429, nullptr, "throttled: too many requests of this vault", "fewer requests, or a vault for each machine"},
};

static std::string MessageOf(const WebAnswer& answer)
{
    const Json error = answer.json.is_object() ? answer.json.value("error", Json()) : Json();
    const std::string message = JsonText(error, "message");
    return message.substr(0, message.find('\r'));
}

static Outcome ExplainToken(const Facts& facts)
{
    const std::string found = "401, the token isn't accepted";
    if (!facts.vaultTenant.empty() && !EqualIgnoringCase(facts.vaultTenant, facts.tokenTenant)) {
        return Failed(
            found,
            "the vault belongs to directory " + facts.vaultTenant + ", the token to directory " + facts.tokenTenant,
            "sign in to the vault's directory: TenantId, or another identity");
    }
    return Failed(found, "the vault considers the token expired or issued for another service",
                  "check this machine's clock");
}

// An answer that is neither a success nor a missing right.
static Outcome Explain(const WebAnswer& answer, const Facts& facts)
{
    if (answer.error)
        return Failed(WebErrorText(answer.error), "the vault doesn't answer", "run it again");
    std::string found = std::to_string(answer.status);
    AddPart(&found, VaultCode(answer), " ");
    AddPart(&found, MessageOf(answer), ", ");
    Outcome outcome = Failed(found, "the service has a fault", "run it again in a minute");
    if (answer.status < 300) {
        outcome = NotTheService(answer, "vault", "the vault's host");
    } else if (answer.status == 401) {
        outcome = ExplainToken(facts);
    }
    for (const VaultRefusal& row : kRefusals) {
        if (row.status == answer.status && (!row.code || VaultCode(answer) == row.code)) {
            outcome.cause = row.cause;
            outcome.fix = row.fix;
        }
    }
    return Because(outcome, answer.status, VaultCode(answer));
}

static bool KeepsOut(const std::string& code)
{
    return code == "ForbiddenByFirewall" || code == "ForbiddenByConnection";
}

static bool IsMissingRight(DWORD status, const std::string& code)
{
    return status == 403 && !KeepsOut(code);
}

// kind: "key" or "certificate".
static Outcome MissingRight(const Facts& facts, const std::string& kind, const std::string& right,
                            const std::string& code)
{
    const std::string policy = "az keyvault set-policy --name " + facts.vault + " --object-id " + facts.objectId +
                               " --" + kind + "-permissions " + right;
    const std::string role = "az role assignment create --assignee-object-id " + facts.objectId +
                             " --assignee-principal-type ServicePrincipal --role \"" +
                             (kind == "key" ? "Key Vault Crypto User" : "Key Vault Reader") +
                             "\" --scope $(az keyvault show --name " + facts.vault + " --query id -o tsv)";
    const std::string fix = code == "ForbiddenByRbac"                               ? role
                            : code == "AccessDenied" || code == "ForbiddenByPolicy" ? policy
                                                                                    : role + "; or " + policy;
    return Because(Failed("403 " + code, "the identity may not " + right + " " + kind + "s", fix), 403, code);
}

static Json MemberOf(const Json& object, const char* name)
{
    return object.is_object() ? object.value(name, Json()) : Json();
}

// A time among a key's attributes.
static int64_t TimeIn(const Json& attributes, const char* name, int64_t fallback)
{
    const Json time = MemberOf(attributes, name);
    return time.is_number() ? time.get<int64_t>() : fallback;
}

// Why the attributes prevent the use of a key; empty if they don't.
static std::string AttributesProblem(const Json& attributes)
{
    const int64_t now = _time64(nullptr);
    if (MemberOf(attributes, "enabled") == false)
        return "disabled";
    if (TimeIn(attributes, "nbf", 0) > now)
        return "not valid yet";
    return TimeIn(attributes, "exp", INT64_MAX) <= now ? "expired" : "";
}

// The name in https://VAULT/keys/NAME.
static std::string NameIn(const Json& item)
{
    const std::string kid = JsonText(item, "kid");
    const std::string url = kid.empty() ? JsonText(item, "id") : kid;
    const size_t slash = url.rfind('/');
    return slash == std::string::npos ? "" : url.substr(slash + 1);
}

static const Json* ListIn(const WebAnswer& answer)
{
    const bool good = answer.status == 200 && answer.json.is_object() && answer.json.contains("value");
    return good && answer.json["value"].is_array() ? &answer.json["value"] : nullptr;
}

Outcome CheckVault(Facts& facts)
{
    if (facts.token.empty())
        return Blocked("needs a sign-in");
    const WebAnswer answer = AskVault(facts, "/keys");
    NoteTime(answer, &facts);
    facts.listStatus = answer.status;
    facts.listCode = VaultCode(answer);
    if (IsMissingRight(answer.status, facts.listCode))
        return Good("it does, and refuses to list its keys");
    const Json* const list = ListIn(answer);
    if (answer.error || !list)
        return Explain(answer, facts);
    for (const Json& item : *list) {
        if (AttributesProblem(MemberOf(item, "attributes")).empty())
            facts.listedKeys.push_back(NameIn(item));
    }
    return Good("it does; keys on the first page of its list: " + std::to_string(list->size()));
}

Outcome CheckListKeys(Facts& facts)
{
    if (facts.listStatus == 200)
        return Good("granted");
    Outcome outcome = MissingRight(facts, "key", "list", facts.listCode);
    // A program that names its key doesn't need the list.
    if (facts.keyNamed)
        outcome.state = State::Warn;
    return outcome;
}

// The vault checks the right before it looks for the object.
constexpr char kProbe[] = "kelvaroctl-doctor-probe";

static Outcome JudgeRight(const WebAnswer& answer, const Facts& facts, const std::string& kind,
                          const std::string& right)
{
    if (answer.error || answer.status == 401 || answer.status == 429 || answer.status >= 500 ||
        KeepsOut(VaultCode(answer)))
        return Explain(answer, facts);
    if (IsMissingRight(answer.status, VaultCode(answer)))
        return MissingRight(facts, kind, right, VaultCode(answer));
    if (answer.status < 300 && !answer.json.is_object())
        return Explain(answer, facts);
    return Good("granted");
}

Outcome CheckGetKey(Facts& facts)
{
    if (!facts.keyNamed && !facts.listedKeys.empty())
        facts.key = ClearNameOf(facts.listedKeys[0]);
    facts.vaultKey = facts.key.empty() ? kProbe : VaultNameOf(facts.key);
    const WebAnswer answer = AskVault(facts, "/keys/" + facts.vaultKey);
    facts.keyStatus = answer.status;
    facts.keyBundle = answer.status == 200 ? answer.json : Json();
    return JudgeRight(answer, facts, "key", "get");
}

static Json KeyIn(const Facts& facts)
{
    return MemberOf(facts.keyBundle, "key");
}

// "sign, verify"
static std::string OperationsOf(const Facts& facts)
{
    std::string operations;
    for (const Json& operation : MemberOf(KeyIn(facts), "key_ops"))
        AddPart(&operations, operation.is_string() ? operation.get<std::string>() : "", ", ");
    return operations;
}

// Why the key can't sign, regardless of rights; empty if it can.
static std::string KeyProblem(const Facts& facts)
{
    const std::string problem = AttributesProblem(MemberOf(facts.keyBundle, "attributes"));
    const bool maySign = (", " + OperationsOf(facts) + ",").find(", sign,") != std::string::npos;
    return !problem.empty() ? problem : maySign ? "" : "not allowed to sign";
}

// "'web', EC P-256, allowed to sign, verify, valid until 2027-01-31T00:00:00Z"
static std::string KeyWords(const Facts& facts)
{
    const Json attributes = MemberOf(facts.keyBundle, "attributes");
    std::string words = "'" + facts.key + "', " + JsonText(KeyIn(facts), "kty");
    AddPart(&words, JsonText(KeyIn(facts), "crv"), " ");
    words += ", allowed to " + OperationsOf(facts);
    if (const int64_t from = TimeIn(attributes, "nbf", 0))
        words += ", valid from " + TimeText(from);
    if (const int64_t until = TimeIn(attributes, "exp", 0))
        words += ", valid until " + TimeText(until);
    return words;
}

Outcome CheckSignRight(Facts& facts)
{
    if (facts.keyBundle.is_object() && !KeyProblem(facts).empty())
        return NotNeeded("can't be tried with a key that is " + KeyProblem(facts));
    const SignatureAlgorithm& algorithm = AlgorithmFor(JsonText(KeyIn(facts), "crv"));
    const Bytes digest = Digest(algorithm.hash, algorithm.digestSize, Bytes(1));
    const Json body = {{"alg", algorithm.name}, {"value", Base64Url(digest)}};
    return JudgeRight(AskVault(facts, "/keys/" + facts.vaultKey + "//sign", body.dump()), facts, "key", "sign");
}

// Without this right the provider works, but copies no certificates to the machine.
Outcome CheckCertificateRight(Facts& facts, const char* right)
{
    if (facts.plainKeys || facts.tool.user)
        return NotNeeded("with these settings no certificates are copied from the vault");
    const std::string name = facts.certificate.empty() ? kProbe : facts.certificate;
    const bool lists = right == std::string_view("list");
    const WebAnswer answer = AskVault(facts, "/certificates" + (lists ? "" : "/" + name));
    const Json* const list = ListIn(answer);
    if (list && !list->empty())
        facts.certificate = NameIn(list->front());
    Outcome outcome = JudgeRight(answer, facts, "certificate", right);
    if (outcome.state == State::Fail)
        outcome.state = State::Warn;
    return outcome;
}

Outcome CheckKey(Facts& facts)
{
    if (facts.key.empty()) {
        return NotNeeded(std::string(facts.listStatus == 200 ? "no usable key on the first page of the list"
                                                             : "no list to choose from") +
                         ": name one with --key");
    }
    if (!facts.keyBundle.is_object()) {
        Outcome outcome = Failed("'" + facts.key + "': " + std::to_string(facts.keyStatus), "the vault has no such key",
                                 "kelvaroctl keys list; was it deleted?");
        outcome.exit = ExitCode::NotFound;
        return Because(outcome, facts.keyStatus, "");
    }
    const std::string problem = KeyProblem(facts);
    if (problem.empty())
        return Good(KeyWords(facts));
    return Failed(KeyWords(facts), "the key is " + problem,
                  "az keyvault key set-attributes --vault-name " + facts.vault + " --name " + facts.vaultKey +
                      "; or another key");
}

}  // namespace kelvaroctl
