#include "kelvaroctl/doctor/sockets.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netdb.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <sstream>

namespace kelvaroctl {

namespace {

struct AddressFreer {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, AddressFreer>;

Addresses Look(const std::string& host, INTERNET_PORT port, int flags, std::string* problem)
{
    addrinfo hints = {};
    hints.ai_flags = flags;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    *problem = error ? gai_strerror(error) : "";
    return Addresses(error ? nullptr : found);
}

// KELVARO_CONNECT_TO redirects the transport, so it redirects the checks as well: HOST:PORT:HOST:PORT, where an empty
// part means any, or the same.
void Redirect(std::string* host, INTERNET_PORT* port)
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
            *port = static_cast<INTERNET_PORT>(std::atoi(part[3].c_str()));
        return;
    }
}

struct Socket {
    explicit Socket(int family) : fd(socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {}
    ~Socket() { close(fd); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    bool Wait(short events, DWORD limitMs) const
    {
        pollfd entry = {fd, events, 0};
        return poll(&entry, 1, static_cast<int>(limitMs)) == 1;
    }
    const int fd;
};

}  // namespace

std::vector<Endpoint> Resolve(const std::string& host, INTERNET_PORT port, std::string* problem)
{
    std::string name = host;
    Redirect(&name, &port);
    const Addresses found = Look(name, port, 0, problem);
    std::vector<Endpoint> endpoints;
    for (const addrinfo* at = found.get(); at; at = at->ai_next) {
        char text[NI_MAXHOST];
        if (getnameinfo(at->ai_addr, at->ai_addrlen, text, sizeof(text), nullptr, 0, NI_NUMERICHOST) == 0)
            endpoints.push_back({text, port});
    }
    return endpoints;
}

std::string Connect(const Endpoint& endpoint, DWORD limitMs, const std::string& request, std::string* answer)
{
    std::string problem;
    const Addresses address = Look(endpoint.address, endpoint.port, AI_NUMERICHOST, &problem);
    if (!address)
        return problem;
    const Socket socket(address->ai_family);
    if (connect(socket.fd, address->ai_addr, address->ai_addrlen) != 0 && errno != EINPROGRESS)
        return strerror(errno);
    if (!socket.Wait(POLLOUT, limitMs))
        return "no answer within " + std::to_string(limitMs) + " ms";
    int error = 0;
    socklen_t size = sizeof(error);
    getsockopt(socket.fd, SOL_SOCKET, SO_ERROR, &error, &size);
    if (error)
        return strerror(error);
    if (request.empty())
        return "";
    char bytes[512] = "";
    if (send(socket.fd, request.data(), request.size(), MSG_NOSIGNAL) < 0 || !socket.Wait(POLLIN, limitMs))
        return "connected, but no answer within " + std::to_string(limitMs) + " ms";
    const ssize_t count = recv(socket.fd, bytes, sizeof(bytes), 0);
    answer->assign(bytes, count > 0 ? static_cast<size_t>(count) : 0);
    return "";
}

}  // namespace kelvaroctl
