// First, for the sake of Windows' headers. Each system has its own, chosen by the build.
#include "socket_system.h"

#include "kelvaroctl/doctor/sockets.h"

#include "kelvaroctl/owner.h"

namespace kelvaroctl {

namespace {

using Addresses = Owner<addrinfo, freeaddrinfo>;

Addresses LookUp(const std::string& host, INTERNET_PORT port, int flags, std::string* problem)
{
    static const int notStarted = SocketSystem::Start();
    addrinfo hints = {};
    hints.ai_flags = flags;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = notStarted ? notStarted : getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    *problem = error ? SocketSystem::NameText(error) : "";
    return Addresses(error ? nullptr : found);
}

class Socket : NonCopyable {
  public:
    explicit Socket(int family) : handle_(SocketSystem::Open(family)) {}
    ~Socket() { SocketSystem::Close(handle_); }

    // The error, or 0.
    int Connect(const addrinfo& address, DWORD limitMs) const
    {
        if (connect(handle_, address.ai_addr, static_cast<socklen_t>(address.ai_addrlen)) == 0)
            return 0;
        int error = SocketSystem::LastError();
        if (error != SocketSystem::kConnecting)
            return error;
        if (!Wait(true, limitMs))
            return SocketSystem::kTimedOut;
        socklen_t size = sizeof(error);
        getsockopt(handle_, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size);
        return error;
    }

    // The first bytes of the answer; none at the limit, or if the connection ends.
    std::string Ask(const std::string& request, DWORD limitMs) const
    {
        char bytes[512];
        const int sent =
            static_cast<int>(send(handle_, request.data(), static_cast<int>(request.size()), SocketSystem::kSendFlags));
        if (sent < 0 || !Wait(false, limitMs))
            return "";
        const int count = static_cast<int>(recv(handle_, bytes, sizeof(bytes), 0));
        return std::string(bytes, count > 0 ? static_cast<size_t>(count) : 0);
    }

  private:
    // Not WSAPoll: some versions of Windows never report a refused connection to it.
    bool Wait(bool writing, DWORD limitMs) const
    {
        fd_set wanted;
        fd_set failed;
        FD_ZERO(&wanted);
        FD_ZERO(&failed);
        FD_SET(handle_, &wanted);
        FD_SET(handle_, &failed);
        timeval limit = {static_cast<long>(limitMs / 1000), static_cast<long>(limitMs % 1000 * 1000)};
        return select(static_cast<int>(handle_) + 1, writing ? nullptr : &wanted, writing ? &wanted : nullptr, &failed,
                      &limit) > 0;
    }

    const SocketSystem::Handle handle_;
};

}  // namespace

bool ParseIpAddress(const std::string& text, Bytes* address)
{
    const bool is6 = text.find(':') != std::string::npos;
    address->resize(is6 ? sizeof(in6_addr) : sizeof(in_addr));
    return inet_pton(is6 ? AF_INET6 : AF_INET, text.c_str(), address->data()) == 1;
}

std::vector<Endpoint> Resolve(std::string host, INTERNET_PORT port, std::string* problem)
{
    SocketSystem::Redirect(&host, &port);
    const Addresses found = LookUp(host, port, 0, problem);
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
    const Addresses address = LookUp(endpoint.address, endpoint.port, AI_NUMERICHOST, &problem);
    if (!address)
        return problem;
    const Socket socket(address->ai_family);
    const int error = socket.Connect(*address, limitMs);
    if (error)
        return error == SocketSystem::kTimedOut ? "no answer within " + std::to_string(limitMs) + " ms"
                                                : SocketSystem::Text(error);
    if (request.empty())
        return "";
    *answer = socket.Ask(request, limitMs);
    return answer->empty() ? "connected, but no answer" : "";
}

}  // namespace kelvaroctl
