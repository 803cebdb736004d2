// Names and ports, below HTTP: a request tells only that it failed. Each system has its own source, chosen by the
// build.
#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"

namespace kelvaroctl {

struct Endpoint {
    std::string address;  // as a number
    INTERNET_PORT port;
};

// The addresses of a host, without a time limit. None: *problem has the system's words.
std::vector<Endpoint> Resolve(const std::string& host, INTERNET_PORT port, std::string* problem);

// Connects and, unless `request` is empty, sends it and waits for the first bytes. Returns the problem, or an empty
// text.
std::string Connect(const Endpoint& endpoint, DWORD limitMs, const std::string& request = "",
                    std::string* answer = nullptr);

}  // namespace kelvaroctl
