#include "vaultsim/listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace vaultsim {

namespace {

[[noreturn]] void Fail(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

Listener::Listener(const std::string& address, int port, std::function<void(int)> accepted)
    : accepted_(std::move(accepted)), address_(address), port_(port), wake_(eventfd(0, EFD_CLOEXEC))
{
    socket_ = Bind();
    sockaddr_in bound = {};
    socklen_t size = sizeof bound;
    getsockname(socket_, reinterpret_cast<sockaddr*>(&bound), &size);
    port_ = ntohs(bound.sin_port);
}

Listener::~Listener()
{
    StopAccepting();
    close(socket_);
    close(wake_);
}

int Listener::Bind() const
{
    const int bound = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (bound < 0)
        Fail("socket");
    const int on = 1;
    setsockopt(bound, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port_));
    inet_pton(AF_INET, address_.c_str(), &address.sin_addr);
    if (bind(bound, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        close(bound);
        errno = error;
        Fail("bind");
    }
    return bound;
}

void Listener::Up()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (thread_.joinable())
        return;
    if (listen(socket_, 1024) != 0)
        Fail("listen");
    thread_ = std::thread(&Listener::Accept, this, socket_);
}

void Listener::Down()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!thread_.joinable())
        return;
    StopAccepting();
    // A socket that is bound but doesn't listen refuses connections and keeps others off the port.
    close(socket_);
    socket_ = Bind();
}

void Listener::StopAccepting()
{
    if (!thread_.joinable())
        return;
    uint64_t word = 1;
    while (write(wake_, &word, sizeof word) < 0 && errno == EINTR) {
    }
    thread_.join();
    while (read(wake_, &word, sizeof word) < 0 && errno == EINTR) {
    }
}

void Listener::Accept(int listening)
{
    pollfd events[] = {{listening, POLLIN, 0}, {wake_, POLLIN, 0}};
    while (true) {
        if (poll(events, 2, -1) < 0 && errno != EINTR)
            return;
        if (events[1].revents != 0)
            return;
        const int connection = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0)
            accepted_(connection);
    }
}

}  // namespace vaultsim
