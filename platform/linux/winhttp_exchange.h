// One request and its response over libcurl, in WinHTTP's steps.
#pragma once

#include <curl/curl.h>
#include <openssl/ssl.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "platform/linux/openssl_pointers.h"
#include "platform/linux/winhttp_message.h"
#include "platform/linux/winhttp_pool.h"
#include "platform/secret_memory.h"

namespace winhttp {

// Milliseconds; 0 and -1 mean no limit. Sending a request and receiving a head may each take three times their limit in
// all, even if data keeps trickling in: for a head that is WinHTTP's default of 90 s.
struct Timeouts {
    int connect = 60000;
    int send = 30000;
    int receive = 30000;
};

// The platform's code for a transfer that ended with `code`.
// tlsRefused: one side refused the handshake, as opposed to a connection that broke.
LONG ErrorFromCurl(CURLcode code, bool tlsRefused);

// libcurl's connect-to list.
using ConnectTo = Owner<curl_slist, curl_slist_free_all>;

// Every step returns 0 or a platform error code, and may throw std::bad_alloc. After a failed step, the next Send
// starts over.
class Exchange {
  public:
    ~Exchange();

    struct Message {
        const char* verb;
        SecretString head;  // ComposeHead's text
        const char* body;   // NULL for none; not copied, must outlive the exchange
        size_t bodySize;
    };

    // Opens a new connection and sends; a request in progress is dropped with its connection.
    // ERROR_WINHTTP_HEADER_SIZE_OVERFLOW without a connection if the request line and the head exceed 64 KiB.
    // ignored: SECURITY_FLAG_IGNORE_...
    LONG Send(const Target& target, Message message, const Timeouts& timeouts, DWORD ignored);
    LONG ReceiveHead();
    // Returns when at least one byte of the entity has arrived, or the entity has ended: then Buffered() is empty.
    // The receive time-out limits the whole wait, even if chunk sizes and trailers arrive meanwhile.
    LONG WaitForEntity();

    // The server's certificate; NULL before a TLS handshake has succeeded.
    X509* Peer() const { return peer_.get(); }
    DWORD Status() const { return status_; }
    // Status line and fields of the final response, each line ended by CR LF, and an empty line.
    std::string_view Head() const { return head_; }
    std::string_view Buffered() const { return std::string_view(entity_).substr(consumed_); }
    void Consume(size_t count);

  private:
    using Clock = std::chrono::steady_clock;
    // Milliseconds: of silence, and in all. 0 and -1 mean no limit.
    struct Limits {
        int silenceMs;
        int totalMs;
    };

    static int OnConnected(void* self, char*, char*, int, int);
    static size_t OnHeadLine(char* line, size_t, size_t size, void* self);
    static size_t OnEntity(char* data, size_t, size_t size, void* self);
    static CURLcode OnTlsContext(CURL*, void* context, void* self);
    static void OnTlsState(const SSL* ssl, int where, int result);
    static int OnCertificate(int valid, X509_STORE_CTX* chain);

    void Configure(const Timeouts& timeouts);
    void Aim(const Target& target);
    void Begin();
    void Stop();
    void AddHeadLine(std::string_view line);
    bool WholeRequestSent() const;
    template <class Condition>
    void DriveUntil(Condition condition, Limits limits);
    bool Connecting() const;
    bool Wait(Clock::time_point until);
    void Perform();
    void End(LONG error);
    template <class Value>
    void Set(CURLoption option, Value value);

    CURL* easy() const { return transfer_->easy(); }
    CURLM* multi() const { return transfer_->multi(); }

    // libcurl's handles for the current transfer. NULL before the first one.
    std::unique_ptr<Transfer> transfer_;
    Message message_ = {};
    Timeouts timeouts_;
    DWORD ignored_ = 0;
    ConnectTo connectTo_;
    std::array<curl_slist, 8> fields_ = {};

    // Progress.
    bool running_ = false;
    bool connected_ = false;
    bool tlsRefused_ = false;
    bool headComplete_ = false;
    CertificatePointer peer_;
    bool ended_ = false;
    LONG error_ = 0;
    DWORD status_ = 0;
    size_t headSize_ = 0;  // interim heads and trailers count as well
    SecretString head_;
    SecretString entity_;
    size_t consumed_ = 0;
};

}  // namespace winhttp
