// One exchange through WinHTTP's calls, as a caller makes it.
#pragma once

#include <cstdlib>

#include "tests/platform/platform_root.h"
#include "tests/platform/raw_server.h"

// What one exchange brought, and the step that failed.
struct Reply {
    std::string failed;
    DWORD error = 0;
    DWORD status = 0;
    std::string head;
    std::string body;
    DWORD largest = 0;  // most bytes announced at once
};

struct Call {
    std::string host = "127.0.0.1";
    unsigned short port = 80;
    std::string path = "/";
    std::string verb = "GET";
    std::string headers = {};
    std::string_view body = {};
    int waitMs = 0;       // for each kind of wait; 0 leaves the defaults
    bool secure = false;  // as port 443 always is
    std::function<void()> beforeReading = [] {};
};

// The steps in their order up to the first that fails; "connect", "open", "send", "receive", "available" and "read".
Reply Perform(const Call& call);

// "send 12029" or the status, for tables.
std::string Outcome(const Reply& reply);

constexpr char kOk[] = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

// A server's script: one request, then these bytes.
RawServer::Script Answer(std::string bytes);

// Sets KELVARO_CONNECT_TO.
void ConnectTo(const std::string& entries);
// The entry that sends every host's port `from` to the server, and a blank.
std::string Entry(int from, const RawServer& server);

// Makes the host "two.test" resolve to two addresses on loopback, whatever port is asked for.
void ResolveToPorts(unsigned short first, unsigned short second);

// Each test starts and ends without what the environment says of proxies, roots and redirected connections.
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
