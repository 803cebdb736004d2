// Linux' sockets, for sockets.cpp.
#pragma once

#include <arpa/inet.h>
#include <errno.h>
#include <netdb.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string>

#include "platform/platform.h"

namespace kelvaroctl {

struct SocketSystem {
    using Handle = int;
    static constexpr int kConnecting = EINPROGRESS;
    static constexpr int kTimedOut = ETIMEDOUT;
    static constexpr int kSendFlags = MSG_NOSIGNAL;

    static int Start() { return 0; }
    static Handle Open(int family) { return socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }
    static void Close(Handle handle) { close(handle); }
    static int LastError() { return errno; }
    static std::string Text(int error) { return strerror(error); }
    static std::string NameText(int error) { return gai_strerror(error); }

    // KELVARO_CONNECT_TO redirects the transport, so it redirects the checks as well: HOST:PORT:HOST:PORT, where an
    // empty part means any, or the same.
    static void Redirect(std::string* host, INTERNET_PORT* port)
    {
        const char* const entries = secure_getenv("KELVARO_CONNECT_TO");
        std::istringstream list(entries ? entries : "");
        for (std::string entry; list >> entry;) {
            std::string part[4];
            std::istringstream parts(entry);
            for (std::string& text : part)
                std::getline(parts, text, ':');
            if ((!part[0].empty() && part[0] != *host) || (!part[1].empty() && part[1] != std::to_string(*port)))
                continue;
            if (!part[2].empty())
                *host = part[2];
            if (!part[3].empty())
                *port = static_cast<INTERNET_PORT>(std::strtol(part[3].c_str(), nullptr, 10));
            return;
        }
    }
};

}  // namespace kelvaroctl
