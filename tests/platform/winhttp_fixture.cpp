#include "tests/platform/winhttp_fixture.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

std::string Peer::ReadRequest()
{
    std::string request;
    size_t expected = std::string::npos;
    char chunk[65536];
    while (request.size() < expected) {
        const ssize_t got =
            tls_ != nullptr ? SSL_read(tls_, chunk, sizeof(chunk)) : recv(socket_, chunk, sizeof(chunk), 0);
        if (got <= 0)
            break;
        request.append(chunk, static_cast<size_t>(got));
        const size_t end = request.find("\r\n\r\n");
        if (end == std::string::npos)
            continue;
        const size_t field = request.find("Content-Length: ");
        expected = end + 4 + (field < end ? strtoul(request.c_str() + field + 16, nullptr, 10) : 0);
    }
    const std::lock_guard<std::mutex> guard(server_->lock_);
    server_->seen_.requests.push_back(request);
    return request;
}

void Peer::Write(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t put = tls_ != nullptr ? SSL_write(tls_, bytes.data(), static_cast<int>(bytes.size()))
                                            : send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (put <= 0)
            return;
        bytes.remove_prefix(static_cast<size_t>(put));
    }
}

bool Peer::Wait(int event, int waitMs)
{
    pollfd ends[] = {{socket_, static_cast<short>(event), 0}, {server_->stop_[0], 0, 0}};
    return poll(ends, 2, waitMs) != 0;
}

void Peer::Drip()
{
    while (!Wait(POLLRDHUP, 10))
        Write("1");
}

void Peer::Reset()
{
    const linger now = {1, 0};
    setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
}

int BindToLoopback(sockaddr_in* address)
{
    const int bound = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    *address = {};
    address->sin_family = AF_INET;
    address->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(*address);
    if (bind(bound, reinterpret_cast<sockaddr*>(address), size) != 0)
        throw std::runtime_error("no address on loopback");
    getsockname(bound, reinterpret_cast<sockaddr*>(address), &size);
    return bound;
}

RawServer::RawServer(Script script, const char* identity, int maxTls) : script_(std::move(script))
{
    if (identity != nullptr) {
        const std::string file = X509File(identity);
        tls_.reset(SSL_CTX_new(TLS_server_method()));
        SSL_CTX_use_certificate_file(tls_.get(), file.c_str(), SSL_FILETYPE_PEM);
        SSL_CTX_use_PrivateKey_file(tls_.get(), file.c_str(), SSL_FILETYPE_PEM);
        SSL_CTX_set_max_proto_version(tls_.get(), maxTls);
        // Allows versions that OpenSSL refuses by default.
        SSL_CTX_set_security_level(tls_.get(), 0);
        // Sessions are kept by the server alone.
        SSL_CTX_set_options(tls_.get(), SSL_OP_NO_TICKET);
    }
    sockaddr_in address;
    listener_ = BindToLoopback(&address);
    if (pipe2(stop_, O_CLOEXEC) != 0 || listen(listener_, 128) != 0)
        throw std::runtime_error("listener");
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { Accept(); });
}

RawServer::~RawServer()
{
    // A script that waits with unread bytes doesn't see a hang-up.
    close(stop_[1]);
    shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    for (std::thread& connection : connections_)
        connection.join();
    close(listener_);
    close(stop_[0]);
}

RawServer::Seen RawServer::seen() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return seen_;
}

void RawServer::Accept()
{
    for (int socket = 0; (socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;)
        connections_.emplace_back([this, socket] { Serve(socket); });
}

void RawServer::Serve(int socket)
{
    // OpenSSL's writes may raise it here. The client's threads must not need this.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    SSL* tls = nullptr;
    bool good = true;
    if (tls_) {
        tls = SSL_new(tls_.get());
        SSL_set_fd(tls, socket);
        good = SSL_accept(tls) == 1;
        // A TLS 1.3 client may refuse after the server has finished.
        char byte = 0;
        good = good && SSL_peek(tls, &byte, 1) == 1;
        const std::lock_guard<std::mutex> guard(lock_);
        if (const char* name = SSL_get_servername(tls, TLSEXT_NAMETYPE_host_name))
            seen_.serverName = name;
        seen_.resumed += SSL_session_reused(tls);
    }
    if (good) {
        Peer peer(this, socket, tls);
        script_(peer);
    }
    // Without a closing alert the session would be dropped.
    if (tls != nullptr)
        SSL_set_shutdown(tls, SSL_SENT_SHUTDOWN | SSL_RECEIVED_SHUTDOWN);
    SSL_free(tls);
    close(socket);
}

static std::string twoPorts[2];

// libcurl finds this one before the C library's.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service,
                                                                  const addrinfo* hints, addrinfo** list)
{
    const auto resolve = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if (name == nullptr || strcmp(name, "two.test") != 0)
        return resolve(name, service, hints, list);
    addrinfo stream = {};
    stream.ai_family = AF_INET;
    stream.ai_socktype = SOCK_STREAM;
    const int error = resolve("127.0.0.1", twoPorts[0].c_str(), &stream, list);
    return error != 0 ? error : resolve("127.0.0.1", twoPorts[1].c_str(), &stream, &(*list)->ai_next);
}

void ResolveToPorts(unsigned short first, unsigned short second)
{
    twoPorts[0] = std::to_string(first);
    twoPorts[1] = std::to_string(second);
}

RawServer::Script Answer(std::string bytes, void (Peer::*end)())
{
    return [bytes = std::move(bytes), end](Peer& peer) {
        peer.ReadRequest();
        peer.Write(bytes);
        if (end != nullptr)
            (peer.*end)();
    };
}

std::string Wire(const std::string& start, const std::string& fields, const std::string& body, const std::string& host)
{
    const std::string length = "Content-Length: " + std::to_string(body.size()) + "\r\n";
    return start + " HTTP/1.1\r\nConnection: Keep-Alive\r\n" + fields + "User-Agent: Agent 1\r\n" +
           (start[0] == 'P' ? length : "") + "Host: " + host + "\r\n\r\n" + body;
}

void ConnectTo(const std::string& entries)
{
    setenv("KELVARO_CONNECT_TO", entries.c_str(), 1);
}

std::string Entry(int from, const RawServer& server)
{
    return ":" + std::to_string(from) + ":127.0.0.1:" + std::to_string(server.port()) + " ";
}
