#include "vaultsim/connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vaultsim {

Connection::Connection(int socket, SslContext context) : socket_(socket), context_(std::move(context))
{
    const int on = 1;
    setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

Connection::~Connection()
{
    if (reset_) {
        const linger now = {1, 0};
        setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        close(socket_);
        return;
    }
    if (ssl_)
        SSL_shutdown(ssl_.get());
    ERR_clear_error();
    shutdown(socket_, SHUT_WR);
    // Closing a socket with unread bytes would reset the connection, and the answer could be lost.
    char rest[4096];
    while (recv(socket_, rest, sizeof rest, MSG_DONTWAIT) > 0) {
    }
    close(socket_);
}

bool Connection::Handshake()
{
    if (!context_)
        return true;
    ssl_.reset(SSL_new(context_.get()));
    if (!ssl_ || SSL_set_fd(ssl_.get(), socket_) != 1 || SSL_accept(ssl_.get()) != 1) {
        ERR_clear_error();
        ssl_.reset();
        return false;
    }
    return true;
}

bool Connection::Read(std::string& buffer)
{
    char piece[16 * 1024];
    const ssize_t got = ssl_ ? SSL_read(ssl_.get(), piece, sizeof piece) : recv(socket_, piece, sizeof piece, 0);
    if (got <= 0) {
        ERR_clear_error();
        return false;
    }
    buffer.append(piece, static_cast<size_t>(got));
    return true;
}

bool Connection::Write(std::string_view bytes)
{
    while (!bytes.empty()) {
        const int piece = static_cast<int>(bytes.size() < 16 * 1024 ? bytes.size() : 16 * 1024);
        const ssize_t sent = ssl_ ? SSL_write(ssl_.get(), bytes.data(), piece)
                                  : send(socket_, bytes.data(), static_cast<size_t>(piece), MSG_NOSIGNAL);
        if (sent <= 0) {
            ERR_clear_error();
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

}  // namespace vaultsim
