// One HTTP or HTTPS exchange: all network traffic of the system goes through it.
#pragma once

#include "platform/owner.h"
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
    DWORD status;     // HTTP status; 0 if there was no answer
    DWORD error;      // platform error of the last step that failed in the last attempt; 0 if none failed
    char* body;       // zero-terminated, owned (free); NULL if no response was received
    BldStr* headers;  // status line and headers, each ended by CR LF, owned; NULL if not received
};

// Blocks for the exchange, up to 10 attempts and the waits between them. Uses TLS if port is 443, and only then. An
// answer is cut off 120 s after its request was sent, or at 16 MiB of body: `error` is then ERROR_WINHTTP_TIMEOUT or
// ERROR_FILE_TOO_LARGE, and `body` is what was received.
// headers: lines ended by CR LF.  body: NULL or zero-terminated.
// The caller owns the record; NULL only if it couldn't be allocated. After any other failure `status` is 0 or `error`
// is set. Neither the URL nor the headers are logged: they may contain tokens.
KVCResponse* KVCDoWebCall(INTERNET_PORT port, const WCHAR* host, const WCHAR* path, const WCHAR* verb,
                          const WCHAR* headers, const char* body);

// Frees body, headers and the record. NULL does nothing.
void KVCFreeResponse(KVCResponse* response);

using KVCResponsePtr = Owner<KVCResponse, KVCFreeResponse>;
