// The transport's functions, answered from a queue.
#include <string.h>

#include <deque>

#include "fuzz/harness.h"
#include "platform/platform.h"
#include "tests/common/test_root.h"

namespace {

constexpr char kCertificate[] =
    "MIIBcjCCARmgAwIBAgIUCHIXVN2ASC8nr181GSY2l026twcwCgYIKoZIzj0EAwIwDjEMMAoGA1UEAwwDd2ViMCAXDTI2MTEyMzEzMTYzM1oYDz"
    "IxMjYxMDMwMTMxNjMzWjAOMQwwCgYDVQQDDAN3ZWIwWTATBgcqhkjOPQIBBggqhkjOPQMBBwNCAASSvbhwvcoq7K+HjCj+b1VCTVFPhRGcDMEw"
    "ZOYz/5FquACI/3KVdHtAl66z1WMEGxQRoaW8r+ACLIly5A3p6MsMo1MwUTAdBgNVHQ4EFgQUUQpEcd0HC2cbBmHqv/zAAfLXeoMwHwYDVR0jBB"
    "gwFoAUUQpEcd0HC2cbBmHqv/zAAfLXeoMwDwYDVR0TAQH/BAUwAwEB/zAKBggqhkjOPQQDAgNHADBEAiAFot4VabttfH2fi9IWnoGqwZsjPC07"
    "brkrEDZAU710qAIgFzqEEWRfwBI2LQgrhNDwigyjGvnX1ItlM+1P/lGCj8Y=";
constexpr char kRequest[] =
    "MIHGMG4CAQAwDDEKMAgGA1UEAwwBYTBZMBMGByqGSM49AgEGCCqGSM49AwEHA0IABJK9uHC9yirsr4eMKP5vVUJNUU+FEZwMwTBk5jP/kWq4AI"
    "j/cpV0e0CXrrPVYwQbFBGhpbyv4AIsiXLkDenoywygADAKBggqhkjOPQQDAgNIADBFAiEAwci0JY79hpqD2Q2beF3jxte4lzf1dN4GuHy6O7oM"
    "5igCIETzAADxSVADsiPXULm6nHsDQ8dSISYbPQbZ2U9cTZ6/";
constexpr char kVerdict[] = R"({"value":true})";
constexpr char kKid[] = R"({"key":{"kid":"https://vault.vault.azure.net/keys/web/0123456789abcdef0123456789abcdef",)";
constexpr char kList[] = R"({"value":[{"kid":"https://v/keys/web"},{"kid":"https://v/keys/rsa"},)"
                         R"({"id":"https://v/certificates/web","x5t":"AAECAwQFBgcICQoLDA0ODxAREhM"}]})";
constexpr char kToken[] = R"({"token_type":"Bearer","access_token":"e30.)"
                          R"(eyJvaWQiOiIwZjFlMmQzYy00YjVhLTY5NzgtODc5Ni1hNWI0YzNkMmUxZjAifQ.c2ln"})";

struct {
    std::deque<std::string> answers;
    char outcome;
    std::string target;
    std::string head;
    std::string body;
    size_t read;
    DWORD status;
} exchange;

std::string Key(bool curve)
{
    const std::string value(342, 'Q');
    return kKid + (curve ? R"("kty":"EC-HSM","crv":"P-256","x":")" + value.substr(0, 43) + R"(","y":")" +
                               value.substr(0, 43) + R"("},"tags":{"AlgID":"ECDSA_P256"}})"
                         : R"("kty":"RSA","n":")" + value + R"(","e":"AQAB"}})");
}

// What the service would say to the request.
std::string RightBody(const std::string& target)
{
    const auto has = [&](const char* part) { return target.find(part) != std::string::npos; };
    if (has("oauth2/token"))
        return kToken;
    if (has("/certificates/"))
        return has("/create?") ? std::string(R"({"csr":")") + kRequest + "\"}"
                               : std::string(R"({"cer":")") + kCertificate + "\"}";
    if (has("/verify?"))
        return kVerdict;
    if (has("/sign?") || has("/encrypt?") || has("/decrypt?"))
        return R"({"value":")" + std::string(has("/web/") ? 86 : 342, 'Q') + "\"}";
    return has("/keys/") ? Key(!has("/keys/rsa")) : kList;
}

DWORD StatusOf(char outcome)
{
    constexpr DWORD kStatuses[] = {200, 201, 202, 204, 400, 401, 403, 404, 409, 429};
    if (outcome >= '0' && outcome <= '9')
        return kStatuses[outcome - '0'];
    return outcome == 'a' ? 500 : outcome == 'h' ? 401 : 200;
}

BOOL Fail(LONG error)
{
    SetLastError(static_cast<DWORD>(error));
    return FALSE;
}

HINTERNET HandleUnless(char outcome)
{
    if (exchange.outcome == outcome)
        Fail(ERROR_NOT_ENOUGH_MEMORY);
    return exchange.outcome == outcome ? nullptr : &exchange;
}

}  // namespace

void fuzz::QueueAnswer(std::string_view line)
{
    const AllocFaultPause pause;
    exchange.answers.emplace_back(line);
}

void fuzz::ForgetAnswers()
{
    exchange.answers.clear();
}

HINTERNET WINAPI WinHttpOpen(LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD)
{
    const AllocFaultPause pause;
    std::string answer = exchange.answers.empty() ? "" : exchange.answers.front();
    if (!exchange.answers.empty())
        exchange.answers.pop_front();
    exchange.outcome = answer.empty() ? '0' : answer[0];
    exchange.body = answer.empty() ? "" : answer.substr(1);
    exchange.head.clear();
    if (exchange.outcome == 'h')
        exchange.head.swap(exchange.body);
    const size_t at = exchange.head.find('@');
    if (at != std::string::npos)
        exchange.head.replace(at, 1, fuzz::RootFolder() + "/root/user/keycontainers");
    exchange.read = 0;
    return HandleUnless('i');
}

HINTERNET WINAPI WinHttpConnect(HINTERNET, LPCWSTR, INTERNET_PORT, DWORD)
{
    return HandleUnless('j');
}

HINTERNET WINAPI WinHttpOpenRequest(HINTERNET, LPCWSTR, LPCWSTR path, LPCWSTR, LPCWSTR, LPCWSTR*, DWORD)
{
    const AllocFaultPause pause;
    exchange.target = Narrow(path);
    return HandleUnless('k');
}

BOOL WINAPI WinHttpSendRequest(HINTERNET, LPCWSTR headers, DWORD, LPVOID body, DWORD size, DWORD, DWORD_PTR)
{
    const AllocFaultPause pause;
    fuzz::Require(headers && (size == 0 || strnlen(static_cast<char*>(body), size) == size));
    exchange.status = StatusOf(exchange.outcome);
    if (exchange.body.empty() && exchange.status < 300 && exchange.status != 204) {
        exchange.body = RightBody(exchange.target);
        const bool creates = exchange.target.find("/create?") != std::string::npos;
        if (creates && exchange.target.find("/certificates/") != std::string::npos)
            exchange.status = 202;
    }
    if (exchange.outcome == 'l' || exchange.outcome == 'm')
        return Fail(exchange.outcome == 'l' ? ERROR_WINHTTP_CANNOT_CONNECT : ERROR_WINHTTP_SECURE_FAILURE);
    return TRUE;
}

BOOL WINAPI WinHttpReceiveResponse(HINTERNET, LPVOID)
{
    return exchange.outcome == 'n' ? Fail(ERROR_WINHTTP_TIMEOUT) : TRUE;
}

BOOL WINAPI WinHttpQueryDataAvailable(HINTERNET, LPDWORD available)
{
    *available = static_cast<DWORD>(exchange.body.size() - exchange.read);
    if (exchange.outcome == 'b' && exchange.read > 0)
        return Fail(ERROR_WINHTTP_CONNECTION_ERROR);
    return TRUE;
}

BOOL WINAPI WinHttpReadData(HINTERNET, LPVOID buffer, DWORD size, LPDWORD read)
{
    const size_t most = exchange.outcome == 'b' ? exchange.body.size() / 2 + 1 : 700;
    *read =
        static_cast<DWORD>(exchange.body.copy(static_cast<char*>(buffer), std::min<size_t>(size, most), exchange.read));
    exchange.read += *read;
    return TRUE;
}

BOOL WINAPI WinHttpQueryHeaders(HINTERNET, DWORD infoLevel, LPCWSTR, LPVOID buffer, LPDWORD length, LPDWORD)
{
    const AllocFaultPause pause;
    const bool number = (infoLevel & WINHTTP_QUERY_FLAG_NUMBER) != 0;
    const TextString head = Wide("HTTP/1.1 " + std::to_string(exchange.status) + " X\r\n" + exchange.head + "\r\n\r\n");
    const void* bytes = number ? static_cast<const void*>(&exchange.status) : head.c_str();
    const DWORD size = number ? sizeof(DWORD) : static_cast<DWORD>((head.size() + 1) * sizeof(WCHAR));
    if (buffer && exchange.outcome == 'o')
        return Fail(ERROR_WINHTTP_INTERNAL_ERROR);
    if (!buffer || *length < size) {
        *length = size;
        return Fail(ERROR_INSUFFICIENT_BUFFER);
    }
    memcpy(buffer, bytes, size);
    *length = number ? size : size - static_cast<DWORD>(sizeof(WCHAR));
    return TRUE;
}

BOOL WINAPI WinHttpCloseHandle(HINTERNET)
{
    return TRUE;
}
