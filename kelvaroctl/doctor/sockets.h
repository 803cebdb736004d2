// Names and ports, below HTTP, where a failed request doesn't show its reason.
#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"

namespace kelvaroctl {

struct Endpoint {
    std::string address;  // as a number
    INTERNET_PORT port;
};

// The addresses of a host; waits as long as the system does. None: *problem has the system's words.
std::vector<Endpoint> Resolve(std::string host, INTERNET_PORT port, std::string* problem);

// Connects and, unless `request` is empty, sends it and takes the first bytes of the answer. Returns the problem, or an
// empty text.
std::string Connect(const Endpoint& endpoint, DWORD limitMs, const std::string& request = "",
                    std::string* answer = nullptr);

}  // namespace kelvaroctl
