// It must come before windows.h.
#include <winsock2.h>
#include <ws2tcpip.h>

#include "kelvaroctl/doctor/sockets.h"

#include <memory>

#include "kelvaroctl/places.h"

namespace kelvaroctl {

namespace {

struct AddressFreer {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, AddressFreer>;

Addresses Look(const std::string& host, INTERNET_PORT port, int flags, std::string* problem)
{
    static WSADATA data;
    static const int started = WSAStartup(MAKEWORD(2, 2), &data);
    addrinfo hints = {};
    hints.ai_flags = flags;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = started ? started : getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    *problem = error ? LoaderMessage(static_cast<DWORD>(error)) : "";
    return Addresses(error ? nullptr : found);
}

struct Socket {
    explicit Socket(int family) : handle(socket(family, SOCK_STREAM, 0))
    {
        u_long on = 1;
        ioctlsocket(handle, FIONBIO, &on);
    }
    ~Socket() { closesocket(handle); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    // Not WSAPoll: some versions of Windows never report a refused connection to it.
    bool Wait(bool writing, DWORD limitMs) const
    {
        fd_set wanted;
        fd_set failed;
        FD_ZERO(&wanted);
        FD_ZERO(&failed);
        FD_SET(handle, &wanted);
        FD_SET(handle, &failed);
        timeval limit = {static_cast<long>(limitMs / 1000), static_cast<long>(limitMs % 1000 * 1000)};
        return select(0, writing ? nullptr : &wanted, writing ? &wanted : nullptr, &failed, &limit) > 0;
    }
    const SOCKET handle;
};

}  // namespace

std::vector<Endpoint> Resolve(const std::string& host, INTERNET_PORT port, std::string* problem)
{
    const Addresses found = Look(host, port, 0, problem);
    std::vector<Endpoint> endpoints;
    for (const addrinfo* at = found.get(); at; at = at->ai_next) {
        char text[NI_MAXHOST];
        if (getnameinfo(at->ai_addr, static_cast<socklen_t>(at->ai_addrlen), text, sizeof(text), nullptr, 0,
                        NI_NUMERICHOST) == 0)
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
    if (connect(socket.handle, address->ai_addr, static_cast<int>(address->ai_addrlen)) != 0 &&
        WSAGetLastError() != WSAEWOULDBLOCK)
        return LoaderMessage(static_cast<DWORD>(WSAGetLastError()));
    if (!socket.Wait(true, limitMs))
        return "no answer within " + std::to_string(limitMs) + " ms";
    int error = 0;
    int size = sizeof(error);
    getsockopt(socket.handle, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size);
    if (error)
        return LoaderMessage(static_cast<DWORD>(error));
    if (request.empty())
        return "";
    char bytes[512] = "";
    if (send(socket.handle, request.data(), static_cast<int>(request.size()), 0) < 0 || !socket.Wait(false, limitMs))
        return "connected, but no answer within " + std::to_string(limitMs) + " ms";
    const int count = recv(socket.handle, bytes, sizeof(bytes), 0);
    answer->assign(bytes, count > 0 ? static_cast<size_t>(count) : 0);
    return "";
}

}  // namespace kelvaroctl
