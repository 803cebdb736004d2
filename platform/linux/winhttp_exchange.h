// One request and its response over libcurl, cut into the steps that WinHTTP has.
#pragma once

#include <curl/curl.h>
#include <openssl/ssl.h>
#include <poll.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "platform/linux/winhttp_message.h"

namespace winhttp {

class TlsShare;

// Milliseconds; 0 and -1 mean no limit.
struct Timeouts {
    int connect = 60000;
    int send = 30000;
    int receive = 30000;
};

// The platform's code for a transfer that ended with `code`.
// tlsRefused: one side refused the handshake, in contrast to a connection that just broke.
LONG ErrorFromCurl(CURLcode code, bool tlsRefused);

// Every step returns 0 or a platform error code, and may throw std::bad_alloc. Once a step has failed,
// the next Send begins afresh.
class Exchange {
  public:
    Exchange() = default;
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    ~Exchange();

    struct Message {
        const char* verb;
        std::string head;  // ComposeHead's text
        const char* body;  // NULL for none; not copied, must outlive the exchange
        size_t bodySize;
    };

    // Opens a new connection and sends; a request that is under way is dropped with its connection.
    LONG Send(const Target& target, Message message, const Timeouts& timeouts);
    LONG ReceiveHead();
    // Returns when at least one byte of the entity is there, or the entity has ended: then Buffered() is empty.
    LONG WaitForEntity();

    DWORD Status() const { return status_; }
    // Status line and fields of the final response, each line ended by CR LF, and an empty line.
    const std::string& Head() const { return head_; }
    std::string_view Buffered() const { return std::string_view(entity_).substr(consumed_); }
    void Consume(size_t count);

  private:
    using Clock = std::chrono::steady_clock;

    static int OnSocket(CURL*, curl_socket_t socket, int what, void* self, void*);
    static int OnTimer(CURLM*, long waitMs, void* self);
    static int OnConnected(void* self, char*, char*, int, int);
    static size_t OnHeadLine(char* line, size_t, size_t size, void* self);
    static size_t OnEntity(char* data, size_t, size_t size, void* self);
    static CURLcode OnTlsContext(CURL*, void* context, void* self);
    static void OnTlsState(const SSL* ssl, int where, int result);

    void Create();
    void Configure(const Timeouts& timeouts);
    void Aim(const Target& target);
    void Begin();
    void Stop();
    void AddHeadLine(std::string_view line);
    bool WholeRequestSent() const;
    template <class Condition>
    void DriveUntil(Condition condition, int waitMs);
    bool WaitForEvent(Clock::time_point limit);
    void Act(curl_socket_t socket, int events);
    template <class Value>
    void Set(CURLoption option, Value value);

    CURL* easy_ = nullptr;
    CURLM* multi_ = nullptr;
    bool running_ = false;

    // What the current transfer rests on.
    Message message_ = {};
    Timeouts timeouts_;
    std::shared_ptr<const TlsShare> tls_;
    curl_slist* connectTo_ = nullptr;
    std::array<curl_slist, 8> fields_ = {};

    // What libcurl wants to be told of.
    std::array<pollfd, 8> sockets_ = {};
    size_t socketCount_ = 0;
    bool timerSet_ = false;
    Clock::time_point timer_;

    // How far it has come.
    bool connected_ = false;
    bool tlsRefused_ = false;
    bool headComplete_ = false;
    bool ended_ = false;
    LONG error_ = 0;
    DWORD status_ = 0;
    std::string head_;
    std::string entity_;
    size_t consumed_ = 0;
};

}  // namespace winhttp
