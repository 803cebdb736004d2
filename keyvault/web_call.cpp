#include "keyvault/web_call.h"

#include <string.h>

#include "keyvault/web_call_body.h"
#include "platform/product.h"
#include "support/clock.h"
#include "support/fail.h"
#include "support/guards.h"

namespace {

constexpr int kAttempts = 10;
constexpr DWORD kRetryWaitMs = 200;
constexpr DWORD kConnectWaitMs = 20000;

using InternetHandle = Owner<void, WinHttpCloseHandle>;

struct Request {
    INTERNET_PORT port;
    const WCHAR* host;
    const WCHAR* path;
    const WCHAR* verb;
    const WCHAR* headers;
    const char* body;
};

enum class Outcome { Received, TryAgain, GivenUp };

void RecordError(KVCResponse* response, const WCHAR* message, DWORD error)
{
    response->error = error;
    LogError(message, error, LOG_ERROR_LEVEL);
}

bool Send(HINTERNET handle, const Request& request)
{
    const DWORD length = request.body ? static_cast<DWORD>(strlen(request.body)) : 0;
    return WinHttpSendRequest(handle, request.headers, static_cast<DWORD>(-1), const_cast<char*>(request.body), length,
                              length, 0);
}

void ReadBody(HINTERNET handle, uint64_t sentAtMs, KVCResponse* response)
{
    WebCallBody body = ReadWebCallBody(handle, sentAtMs);
    if (body.failure)
        RecordError(response, body.failure, body.error);
    response->body = body.bytes.release();
}

void ReadStatus(HINTERNET handle, KVCResponse* response)
{
    DWORD status = 0;
    DWORD size = sizeof(status);
    if (WinHttpQueryHeaders(handle, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, WINHTTP_HEADER_NAME_BY_INDEX,
                            &status, &size, WINHTTP_NO_HEADER_INDEX))
        response->status = status;
    else
        response->error = GetLastError();
}

BOOL QueryHead(HINTERNET handle, WCHAR* head, DWORD* size)
{
    return WinHttpQueryHeaders(handle, WINHTTP_QUERY_RAW_HEADERS_CRLF, WINHTTP_HEADER_NAME_BY_INDEX, head, size,
                               WINHTTP_NO_HEADER_INDEX);
}

// False: there are headers, but the second query for them failed.
bool ReadHead(HINTERNET handle, KVCResponse* response)
{
    DWORD size = 0;
    if (QueryHead(handle, nullptr, &size) || GetLastError() != ERROR_INSUFFICIENT_BUFFER)
        return true;
    MallocPtr<WCHAR> head(static_cast<WCHAR*>(calloc(1, size)));
    if (!head) {
        RecordError(response, TEXT("KVCDoWebCall WinHttpQueryHeaders memory allocation failed"), HeapError());
        return true;
    }
    if (!QueryHead(handle, head.get(), &size)) {
        response->error = GetLastError();
        return false;
    }
    response->headers = BldStrNewStr(head.get());
    return true;
}

Outcome SendFailed(KVCResponse* response, DWORD error)
{
    if (error == ERROR_WINHTTP_CANNOT_CONNECT) {
        RecordError(response, TEXT("KVCDoWebCall WinHttpSendRequest Failed - Sleeping 20 Seconds"), error);
        ClockSleep(kConnectWaitMs);
    } else {
        RecordError(response, TEXT("KVCDoWebCall WinHttpSendRequest Failed"), error);
    }
    return Outcome::TryAgain;
}

Outcome Attempt(const Request& request, KVCResponse* response)
{
    const InternetHandle session(WinHttpOpen(kProviderName, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                                             WINHTTP_NO_PROXY_BYPASS, 0));
    if (!session) {
        RecordError(response, TEXT("KVCDoWebCall WinHttpOpen Failed"), GetLastError());
        return Outcome::GivenUp;
    }
    const InternetHandle connection(WinHttpConnect(session.get(), request.host, request.port, 0));
    if (!connection) {
        RecordError(response, TEXT("KVCDoWebCall WinHttpConnect Failed"), GetLastError());
        return Outcome::GivenUp;
    }
    const DWORD flags = request.port == INTERNET_DEFAULT_HTTPS_PORT ? WINHTTP_FLAG_SECURE : 0;
    const InternetHandle handle(WinHttpOpenRequest(connection.get(), request.verb, request.path, nullptr,
                                                   WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES, flags));
    if (!handle) {
        RecordError(response, TEXT("KVCDoWebCall WinHttpOpenRequest Failed"), GetLastError());
        return Outcome::TryAgain;
    }
    if (!Send(handle.get(), request))
        return SendFailed(response, GetLastError());
    const uint64_t sentAtMs = ClockTickMs();
    if (!WinHttpReceiveResponse(handle.get(), nullptr)) {
        RecordError(response, TEXT("KVCDoWebCall WinHttpReceiveResponse"), GetLastError());
        return Outcome::TryAgain;
    }
    ReadBody(handle.get(), sentAtMs, response);
    ReadStatus(handle.get(), response);
    return ReadHead(handle.get(), response) ? Outcome::Received : Outcome::GivenUp;
}

}  // namespace

KVCResponse* KVCDoWebCall(INTERNET_PORT port, const WCHAR* host, const WCHAR* path, const WCHAR* verb,
                          const WCHAR* headers, const char* body)
{
    LogLine(TEXT("KVCDoWebCall"), LOG_STEP_LEVEL);
    KVCResponsePtr response(static_cast<KVCResponse*>(calloc(1, sizeof(KVCResponse))));
    if (!response)
        return Fail(nullptr, TEXT("KVCDoWebCall allocated response"), GetLastError());
    const Request request = {port, host, path, verb, headers, body};
    Outcome outcome = Outcome::TryAgain;
    for (int attempt = 0; attempt < kAttempts && outcome == Outcome::TryAgain; ++attempt) {
        response->status = 0;
        response->error = 0;
        outcome = Attempt(request, response.get());
        // Also waits after the last attempt.
        if (outcome == Outcome::TryAgain)
            ClockSleep(kRetryWaitMs);
    }
    if (outcome != Outcome::Received)
        LogError(TEXT("KVCDoWebCall failure"), response->error, LOG_ERROR_LEVEL);
    return response.release();
}

void KVCFreeResponse(KVCResponse* response)
{
    if (!response)
        return;
    const LastErrorKeeper keeper;
    WipeFreeBytes(response->body);
    BldStrFree(response->headers);
    free(response);
}
