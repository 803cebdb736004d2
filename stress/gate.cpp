#include "stress/gate.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include "stress/host.h"

namespace stress {

Gate::Gate(GateFault fault) : fault_(fault)
{
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    Require(bind(listener_, reinterpret_cast<sockaddr*>(&address), size) == 0, "no port");
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    if (fault == GateFault::Refuse)
        return;
    Require(listen(listener_, fault == GateFault::SilentAtConnect ? 0 : 128) == 0, "cannot listen");
    if (fault == GateFault::SilentAtConnect)
        FillQueue();
    else
        acceptor_ = std::thread([this] { Accept(); });
}

Gate::~Gate()
{
    shutdown(listener_, SHUT_RDWR);
    if (acceptor_.joinable())
        acceptor_.join();
    for (const int socket : sockets_)
        shutdown(socket, SHUT_RDWR);
    for (std::thread& connection : connections_)
        connection.join();
    for (const int socket : sockets_)
        close(socket);
    close(listener_);
}

// A queue of length 0 takes one connection. The second one is for safety.
void Gate::FillQueue()
{
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    for (int i = 0; i < 2; ++i) {
        sockets_.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        connect(sockets_.back(), reinterpret_cast<sockaddr*>(&address), size);
    }
}

void Gate::Accept()
{
    for (int socket = 0; (socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        sockets_.push_back(socket);
        connections_.emplace_back([this, socket] { Serve(socket); });
    }
}

void Gate::Serve(int socket) const
{
    char bytes[4096];
    if (fault_ == GateFault::SilentInHandshake) {
        while (recv(socket, bytes, sizeof(bytes), 0) > 0) {
        }
        return;
    }
    if (fault_ == GateFault::ResetInHandshake)
        recv(socket, bytes, 1, 0);
    // Resets the connection. The descriptor stays open, so that its number isn't reused while the gate exists.
    const sockaddr none = {AF_UNSPEC, {}};
    connect(socket, &none, sizeof(none));
}

}  // namespace stress
