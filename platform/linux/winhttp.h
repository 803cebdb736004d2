// WinHTTP's names for the Linux build, synchronous mode only, on libcurl.
//
// All functions may be called from any thread; one request handle is used by one thread at a time.
// A function that fails returns FALSE or NULL and sets the last error.
// Time-outs are WinHTTP's: 60 s to connect, 30 s for each wait while sending or receiving, 90 s for a response head;
// and 90 s to send a request. A head of over 64 KiB, sent or received, is ERROR_WINHTTP_HEADER_SIZE_OVERFLOW.
// KELVARO_CONNECT_TO (libcurl's connect-to entries, separated by blanks) redirects connections, and
// SSL_CERT_FILE names the trusted roots; both are read when a request is sent.
#pragma once

#include "platform/linux/win_constants.h"

using HINTERNET = LPVOID;
using INTERNET_PORT = WORD;
using INTERNET_SCHEME = int;

#define WINHTTP_NO_PROXY_NAME nullptr
#define WINHTTP_NO_PROXY_BYPASS nullptr
#define WINHTTP_NO_REFERER nullptr
#define WINHTTP_DEFAULT_ACCEPT_TYPES nullptr
#define WINHTTP_HEADER_NAME_BY_INDEX nullptr
#define WINHTTP_NO_HEADER_INDEX nullptr

struct URL_COMPONENTS {
    DWORD dwStructSize;
    LPWSTR lpszScheme;
    DWORD dwSchemeLength;
    INTERNET_SCHEME nScheme;
    LPWSTR lpszHostName;
    DWORD dwHostNameLength;
    INTERNET_PORT nPort;
    LPWSTR lpszUserName;
    DWORD dwUserNameLength;
    LPWSTR lpszPassword;
    DWORD dwPasswordLength;
    LPWSTR lpszUrlPath;
    DWORD dwUrlPathLength;
    LPWSTR lpszExtraInfo;
    DWORD dwExtraInfoLength;
};
using LPURL_COMPONENTS = URL_COMPONENTS*;

// agent: sent as User-Agent; NULL sends none. Only the default proxy arguments are supported.
HINTERNET WINAPI WinHttpOpen(LPCWSTR agent, DWORD accessType, LPCWSTR proxyName, LPCWSTR proxyBypass, DWORD flags);

// On a session (for requests opened later) or on a request. Milliseconds; 0 and -1 mean no limit.
// The limit on connecting covers the name resolution too; the resolve time-out is ignored. Sending a request and
// receiving a head may take three times their limits in all.
BOOL WINAPI WinHttpSetTimeouts(HINTERNET handle, int resolveMs, int connectMs, int sendMs, int receiveMs);

// host: a name or an address alone, ASCII; anything else is ERROR_WINHTTP_INVALID_URL.
// Port 0 means the scheme's default.
HINTERNET WINAPI WinHttpConnect(HINTERNET session, LPCWSTR host, INTERNET_PORT port, DWORD reserved);

// path: with its query; characters not allowed on a request line are percent-encoded, escapes stay as they are.
HINTERNET WINAPI WinHttpOpenRequest(HINTERNET connection, LPCWSTR verb, LPCWSTR path, LPCWSTR version, LPCWSTR referrer,
                                    LPCWSTR* acceptTypes, DWORD flags);

// Resolves, connects, completes the TLS handshake and sends head and body. Nothing is sent before the peer is verified.
// headersLength: characters, or -1 for a zero-terminated block. optional: optionalLength bytes, which must be the
// whole entity (totalLength equal to it) and must stay valid until the request is closed.
// 12007, 12029, 12175, 12002, 12030.
BOOL WINAPI WinHttpSendRequest(HINTERNET request, LPCWSTR headers, DWORD headersLength, LPVOID optional,
                               DWORD optionalLength, DWORD totalLength, DWORD_PTR context);

// Waits for the head of the final response; redirects are followed. 12030, 12152, 12002, and what
// WinHttpSendRequest has for the hops of a redirect.
BOOL WINAPI WinHttpReceiveResponse(HINTERNET request, LPVOID reserved);

// Waits for entity bytes, no longer than the receive time-out. *available: 1 to 8192, and 0 at the end of the entity.
// 12030 when the entity breaks off, after all bytes before that have been read.
BOOL WINAPI WinHttpQueryDataAvailable(HINTERNET request, LPDWORD available);

// Reads what has arrived, up to `size` bytes; waits only if there is nothing. *read: 0 at the end of the entity.
BOOL WINAPI WinHttpReadData(HINTERNET request, LPVOID buffer, DWORD size, LPDWORD read);

// WINHTTP_QUERY_STATUS_CODE with WINHTTP_QUERY_FLAG_NUMBER, and WINHTTP_QUERY_RAW_HEADERS_CRLF.
// *length is in bytes. ERROR_INSUFFICIENT_BUFFER: *length is what is needed, terminator included;
// after success it is the length without the terminator.
BOOL WINAPI WinHttpQueryHeaders(HINTERNET request, DWORD infoLevel, LPCWSTR name, LPVOID buffer, LPDWORD length,
                                LPDWORD index);

// Only WINHTTP_OPTION_SECURITY_FLAGS of a request, a DWORD of SECURITY_FLAG_IGNORE_UNKNOWN_CA, ..._CERT_CN_INVALID and
// ..._CERT_DATE_INVALID: errors in the server's certificate to ignore. Such a request shares no TLS session with any
// other.
BOOL WINAPI WinHttpSetOption(HINTERNET request, DWORD option, LPVOID buffer, DWORD length);

// Only WINHTTP_OPTION_SERVER_CERT_CONTEXT of a request that was sent: a PCCERT_CONTEXT, freed by the caller.
// ERROR_WINHTTP_INCORRECT_HANDLE_STATE if there is no TLS connection.
BOOL WINAPI WinHttpQueryOption(HINTERNET request, DWORD option, LPVOID buffer, LPDWORD length);

// A parent may be closed before its children.
BOOL WINAPI WinHttpCloseHandle(HINTERNET handle);

// Finds host and port of an http or https URL. length: characters of `url`, or 0 when it is zero-terminated. Only with
// ICU_DECODE, which turns percent escapes into characters, and only for a host name that has a buffer; a request for
// another part is an error. ERROR_INSUFFICIENT_BUFFER: dwHostNameLength is what is needed, terminator included.
BOOL WINAPI WinHttpCrackUrl(LPCWSTR url, DWORD length, DWORD flags, LPURL_COMPONENTS components);
