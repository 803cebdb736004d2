// Servers on loopback that send exactly the bytes of a script, plain or over TLS, and a clean environment.
#pragma once

#include <netinet/in.h>
#include <poll.h>

#include <atomic>
#include <mutex>
#include <string_view>
#include <thread>

#include "platform/owner.h"
#include "tests/common/http_call.h"
#include "tests/platform/openssl_objects.h"
#include "tests/platform/platform_root.h"

class RawServer;

// One accepted connection, after the handshake.
class Peer {
  public:
    Peer(RawServer* server, int socket, SSL* tls) : server_(server), socket_(socket), tls_(tls) {}

    // Head and entity, which the server records, or what came before the client hung up.
    std::string ReadRequest();
    void Write(std::string_view bytes);
    void Drip();   // byte by byte, until the client hangs up or the server ends
    void Reset();  // the connection ends with RST
    // Both return when the server ends, too.
    void WaitForBytes() { Wait(POLLIN, -1); }
    void WaitForClose() { Wait(POLLRDHUP, -1); }

  private:
    bool Wait(int event, int waitMs);  // false after waitMs

    RawServer* server_;
    int socket_;
    SSL* tls_;
};

// Runs `script` on a thread for each connection, and then closes the connection.
class RawServer : private NonCopyable {
  public:
    using Script = std::function<void(Peer&)>;
    // identity: a file of tests/data/x509; NULL: no TLS.
    explicit RawServer(Script script, const char* identity = nullptr, int maxTls = 0);
    ~RawServer();

    unsigned short port() const { return port_; }
    struct Seen {
        std::vector<std::string> requests;
        std::string serverName;  // that the last TLS client asked for
        int resumed = 0;         // TLS connections that resumed an earlier session
    };
    Seen seen() const;
    std::vector<std::string> requests() const { return seen().requests; }

  private:
    friend class Peer;
    void Accept();
    void Serve(int socket);

    Script script_;
    OpensslPtr<SSL_CTX> tls_;
    int listener_ = -1;
    int stop_[2] = {-1, -1};
    unsigned short port_ = 0;
    mutable std::mutex lock_;
    Seen seen_;
    std::vector<std::thread> connections_;
    std::thread acceptor_;
};

using Call = HttpCall;
using Reply = HttpReply;

constexpr char kOk[] = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

// A server's script: one request, then these bytes, then `end`.
RawServer::Script Answer(std::string bytes, void (Peer::*end)() = nullptr);

// A request as WinHTTP sends it, with the caller's fields.
std::string Wire(const std::string& start, const std::string& fields = "", const std::string& body = "",
                 const std::string& host = "kv.test");

// Sets KELVARO_CONNECT_TO.
void ConnectTo(const std::string& entries);
// The entry that sends every host's port `from` to the server, and a blank.
std::string Entry(int from, const RawServer& server);

// A socket that is bound to an address on loopback.
int BindToLoopback(sockaddr_in* address);

// Makes the host "two.test" resolve to two addresses on loopback, whatever the port.
void ResolveToPorts(unsigned short first, unsigned short second);

// Each test starts and ends without the variables for proxies, roots and redirected connections.
class WinHttp : public testing::Test {
  protected:
    void SetUp() override { ClearEnvironment(); }
    void TearDown() override { ClearEnvironment(); }

  private:
    static void ClearEnvironment()
    {
        for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy",
                                 "NO_PROXY", "KELVARO_CONNECT_TO", "SSL_CERT_FILE", "SSLKEYLOGFILE"})
            unsetenv(name);
    }
};
