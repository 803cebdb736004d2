// The tool's own requests: one attempt each, over the platform's transport.
#pragma once

#include <string>
#include <vector>

#include "kelvaroctl/json.h"
#include "platform/platform.h"

namespace kelvaroctl {

struct WebRequest {
    std::string host;
    std::string path;
    std::string verb = "GET";
    std::string headers = {};  // lines ended by CR LF
    std::string body = {};
    bool secure = true;
    INTERNET_PORT port = INTERNET_DEFAULT_HTTPS_PORT;
    DWORD ignoredCertificateErrors = 0;  // SECURITY_FLAG_IGNORE_...
};

// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON value throws nothing.
struct WebAnswer {
    DWORD error = 0;   // the platform's; 0: there is an answer
    DWORD status = 0;  // HTTP
    std::string head;
    std::string body;
    Json json;  // null if the body isn't JSON

    // Of the server's certificate; empty without TLS.
    std::string issuer;
    std::string expires;  // 2026-01-31T00:00:00Z

    std::string Field(const char* name) const;  // of the head; empty if there is none
    int64_t Time() const;                       // its `Date`, seconds since 1970, or 0
};

// limitMs: for each step of the exchange.
WebAnswer Ask(const WebRequest& request, DWORD limitMs);

// "12007, the name was not found"
std::string WebErrorText(DWORD error);

// The text of a member, or "" if it isn't there or isn't a text.
std::string JsonText(const Json& object, const char* name);

}  // namespace kelvaroctl
