#include "bench/memory_transport.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

namespace {

struct {
    ExchangeStep failing;
    MemoryAnswer answer;
    size_t read;
} exchange;

bool Passes(ExchangeStep step)
{
    constexpr LONG kErrors[] = {
        0,
        ERROR_NOT_ENOUGH_MEMORY,
        ERROR_NOT_ENOUGH_MEMORY,
        ERROR_NOT_ENOUGH_MEMORY,
        ERROR_WINHTTP_CANNOT_CONNECT,
        ERROR_WINHTTP_SECURE_FAILURE,
        ERROR_WINHTTP_TIMEOUT,
        ERROR_WINHTTP_INTERNAL_ERROR,
        ERROR_WINHTTP_CONNECTION_ERROR,
    };
    if (exchange.failing != step)
        return true;
    SetLastError(static_cast<DWORD>(kErrors[static_cast<size_t>(step)]));
    return false;
}

HINTERNET HandleAfter(ExchangeStep step)
{
    return Passes(step) ? &exchange : nullptr;
}

}  // namespace

HINTERNET WINAPI WinHttpOpen(LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD)
{
    exchange.failing = FailingStep();
    return HandleAfter(ExchangeStep::Session);
}

HINTERNET WINAPI WinHttpConnect(HINTERNET, LPCWSTR, INTERNET_PORT, DWORD)
{
    return HandleAfter(ExchangeStep::Connection);
}

HINTERNET WINAPI WinHttpOpenRequest(HINTERNET, LPCWSTR, LPCWSTR path, LPCWSTR, LPCWSTR, LPCWSTR*, DWORD)
{
    exchange.answer = AnswerTo(path);
    exchange.read = 0;
    return HandleAfter(ExchangeStep::Request);
}

BOOL WINAPI WinHttpSendRequest(HINTERNET, LPCWSTR headers, DWORD, LPVOID body, DWORD size, DWORD, DWORD_PTR)
{
    if (!headers || (size != 0 && strnlen(static_cast<char*>(body), size) != size))
        abort();
    return Passes(ExchangeStep::Connect) && Passes(ExchangeStep::Send);
}

BOOL WINAPI WinHttpReceiveResponse(HINTERNET, LPVOID)
{
    return Passes(ExchangeStep::Receive);
}

BOOL WINAPI WinHttpQueryDataAvailable(HINTERNET, LPDWORD available)
{
    *available = static_cast<DWORD>(exchange.answer.body.size() - exchange.read);
    return exchange.read == 0 || Passes(ExchangeStep::Body);
}

BOOL WINAPI WinHttpReadData(HINTERNET, LPVOID buffer, DWORD size, LPDWORD read)
{
    const size_t most = std::min<size_t>(size, exchange.answer.piece);
    *read = static_cast<DWORD>(exchange.answer.body.copy(static_cast<char*>(buffer), most, exchange.read));
    exchange.read += *read;
    return TRUE;
}

BOOL WINAPI WinHttpQueryHeaders(HINTERNET, DWORD infoLevel, LPCWSTR, LPVOID buffer, LPDWORD length, LPDWORD)
{
    const bool number = (infoLevel & WINHTTP_QUERY_FLAG_NUMBER) != 0;
    const void* const bytes = number ? static_cast<const void*>(&exchange.answer.status) : exchange.answer.head.data();
    const size_t textSize = exchange.answer.head.size() * sizeof(WCHAR);
    const DWORD size = static_cast<DWORD>(number ? sizeof(DWORD) : textSize + sizeof(WCHAR));
    if (buffer && !Passes(ExchangeStep::Head))
        return FALSE;
    if (!buffer || *length < size) {
        *length = size;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    memcpy(buffer, bytes, size);
    *length = number ? size : static_cast<DWORD>(textSize);
    return TRUE;
}

BOOL WINAPI WinHttpCloseHandle(HINTERNET)
{
    return TRUE;
}
