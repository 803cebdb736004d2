// One exchange through WinHTTP's calls.
#pragma once

#include <string>
#include <string_view>

#include "platform/platform.h"

struct HttpCall {
    std::string host = "127.0.0.1";
    unsigned short port = 80;
    std::string path = "/";
    std::string verb = "GET";
    std::string headers = {};
    std::string_view body = {};
    int waitMs = 0;       // for each kind of wait; 0 leaves the defaults
    bool secure = false;  // as port 443 always is
    DWORD forgiven = 0;   // SECURITY_FLAG_IGNORE_...
};

// The result of one exchange, and the step that failed.
struct HttpReply {
    std::string failed;
    DWORD error = 0;
    DWORD status = 0;
    std::string head;
    std::string body;
    DWORD largest = 0;  // most bytes announced at once
};

// The steps in their order up to the first that fails; "connect", "open", "send", "receive", "available" and "read".
HttpReply Perform(const HttpCall& call);
// "send 12029" or the status, for tables.
std::string Outcome(const HttpReply& reply);
