// One HTTP or HTTPS exchange: the only function through which bytes leave the system.
#pragma once

#include <memory>

#include "platform/platform.h"
#include "support/bldstr.h"

constexpr DWORD HTTP_OK = 200;
constexpr DWORD HTTP_CREATED = 201;
constexpr DWORD HTTP_ACCEPTED = 202;
constexpr DWORD HTTP_NO_CONTENT = 204;
constexpr DWORD HTTP_BAD_REQUEST = 400;
constexpr DWORD HTTP_FORBIDDEN = 403;
constexpr DWORD HTTP_CONFLICT = 409;
constexpr DWORD HTTP_THROTTLED = 429;

struct KVCResponse {
    DWORD status;     // HTTP status; 0 when none was obtained
    DWORD error;      // platform error of the last failed step of the last attempt; 0 when no step failed
    char* body;       // entity with one zero byte behind it, owned (free); NULL when no response was received
    BldStr* headers;  // status line and header lines, each ended by CR LF, owned; NULL when not obtained
};

// Blocks for the exchange, its repeats (up to 10 attempts) and their waits. TLS exactly when port is 443. An answer is
// broken off 120 s after its request was sent, or at 16 MiB of body: `error` is ERROR_WINHTTP_TIMEOUT or
// ERROR_FILE_TOO_LARGE then, and `body` what had come.
// headers: lines ended by CR LF.  body: NULL or zero-terminated bytes.
// The caller owns the record; NULL only when it could not be allocated. Every other failure is a record with `status` 0
// or with `error` set. Neither URL nor headers are logged: they hold tokens.
KVCResponse* KVCDoWebCall(INTERNET_PORT port, const WCHAR* host, const WCHAR* path, const WCHAR* verb,
                          const WCHAR* headers, const char* body);

// Frees body, headers and the record. NULL does nothing.
void KVCFreeResponse(KVCResponse* response);

struct KVCResponseFreer {
    void operator()(KVCResponse* response) const { KVCFreeResponse(response); }
};
using KVCResponsePtr = std::unique_ptr<KVCResponse, KVCResponseFreer>;
