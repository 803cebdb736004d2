// Name resolution and ports, because a failed HTTP request doesn't say which of them failed.
#pragma once

#include <string>
#include <vector>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

struct Endpoint {
    std::string address;  // as a number
    INTERNET_PORT port;
};

// The address in network order, 4 or 16 bytes. False if the text isn't an address.
bool ParseIpAddress(const std::string& text, Bytes* address);

// The addresses of a host; waits as long as the system does. None: *problem has the system's message.
std::vector<Endpoint> Resolve(std::string host, INTERNET_PORT port, std::string* problem);

// Connects and, unless `request` is empty, sends it and reads the first bytes of the answer. Returns the problem, or an
// empty text.
std::string Connect(const Endpoint& endpoint, DWORD limitMs, const std::string& request = "",
                    std::string* answer = nullptr);

}  // namespace kelvaroctl
