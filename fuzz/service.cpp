// The fake service: it gives the answers that the input has queued, then those of a real service.
#include <deque>

#include "bench/memory_transport.h"
#include "fuzz/harness.h"
#include "tests/common/sample_certificate.h"

namespace {

constexpr char kRequest[] =
    "MIHGMG4CAQAwDDEKMAgGA1UEAwwBYTBZMBMGByqGSM49AgEGCCqGSM49AwEHA0IABJK9uHC9yirsr4eMKP5vVUJNUU+FEZwMwTBk5jP/kWq4AI"
    "j/cpV0e0CXrrPVYwQbFBGhpbyv4AIsiXLkDenoywygADAKBggqhkjOPQQDAgNIADBFAiEAwci0JY79hpqD2Q2beF3jxte4lzf1dN4GuHy6O7oM"
    "5igCIETzAADxSVADsiPXULm6nHsDQ8dSISYbPQbZ2U9cTZ6/";
constexpr char kKid[] = R"({"key":{"kid":"https://vault.vault.azure.net/keys/web/0123456789abcdef0123456789abcdef",)";
constexpr char kList[] = R"({"value":[{"kid":"https://v/keys/web"},{"kid":"https://v/keys/rsa"},)"
                         R"({"id":"https://v/certificates/web","x5t":"AAECAwQFBgcICQoLDA0ODxAREhM"}]})";
constexpr char kToken[] = R"({"token_type":"Bearer","access_token":"e30.)"
                          R"(eyJvaWQiOiIwZjFlMmQzYy00YjVhLTY5NzgtODc5Ni1hNWI0YzNkMmUxZjAifQ.c2ln"})";

std::deque<std::string> queue;
std::string current;  // the queued line of the current session
std::string body;
TextString head;

std::string Member(const char* name, const std::string& value)
{
    return std::string("\"") + name + "\":\"" + value + "\"";
}

// The answer of a real service.
std::string RightBody(const std::string& target)
{
    const std::string value(342, 'Q');
    const std::string coordinate = value.substr(0, 43);
    const auto has = [&](const char* part) { return target.find(part) != std::string::npos; };
    if (has("oauth2/token"))
        return kToken;
    if (has("/certificates/"))
        return "{" + (has("/create?") ? Member("csr", kRequest) : Member("cer", kSampleCertificate)) + "}";
    if (has("/verify?"))
        return R"({"value":true})";
    if (has("/sign?") || has("/encrypt?") || has("/decrypt?"))
        return "{" + Member("value", has("/web/") ? value.substr(0, 86) : value) + "}";
    if (has("/keys/rsa"))
        return kKid + (R"("kty":"RSA","e":"AQAB",)" + Member("n", value)) + "}}";
    if (has("/keys/"))
        return kKid + (R"("kty":"EC-HSM","crv":"P-256",)" + Member("x", coordinate)) + "," + Member("y", coordinate) +
               R"(},"tags":{"AlgID":"ECDSA_P256"}})";
    return kList;
}

DWORD StatusOf(char outcome)
{
    constexpr DWORD kStatuses[] = {200, 201, 202, 204, 400, 401, 403, 404, 409, 429};
    if (outcome >= '0' && outcome <= '9')
        return kStatuses[outcome - '0'];
    return outcome == 'a' ? 500 : outcome == 'h' ? 401 : 200;
}

}  // namespace

void fuzz::QueueAnswer(std::string_view line)
{
    const AllocFaultPause pause;
    queue.emplace_back(line.empty() ? "0" : line);
}

void fuzz::ForgetAnswers()
{
    queue.clear();
}

ExchangeStep FailingStep()
{
    constexpr std::string_view kLetters = "-ijklmnob";  // in the order of the steps
    const AllocFaultPause pause;
    current = "0";
    if (!queue.empty()) {
        current = queue.front();
        queue.pop_front();
    }
    const size_t step = kLetters.find(current[0]);
    return step == kLetters.npos ? ExchangeStep::None : static_cast<ExchangeStep>(step);
}

MemoryAnswer AnswerTo(LPCWSTR path)
{
    const AllocFaultPause pause;
    const std::string target = Narrow(path);
    const char outcome = current[0];
    MemoryAnswer answer;
    answer.status = StatusOf(outcome);
    std::string line = outcome == 'h' ? current.substr(1) : "";
    body = outcome == 'h' ? "" : current.substr(1);
    if (body.empty() && answer.status < 300 && answer.status != 204) {
        body = RightBody(target);
        answer.status = body.compare(0, 6, R"({"csr")") == 0 ? 202 : answer.status;
    }
    if (const size_t at = line.find('@'); at != std::string::npos)
        line.replace(at, 1, fuzz::Root().directory() + "/root/user/keycontainers");
    head = Wide("HTTP/1.1 " + std::to_string(answer.status) + " X\r\n" + line + "\r\n\r\n");
    answer.head = head;
    answer.body = body;
    answer.piece = outcome == 'b' ? body.size() / 2 + 1 : 700;
    return answer;
}
