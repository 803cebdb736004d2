// libcurl's handles, kept from one request to the next: making them anew costs a pair of sockets and their memory. No
// connection is kept, and nothing of a request.
#pragma once

#include <curl/curl.h>
#include <sys/types.h>

#include <memory>

#include "platform/linux/winhttp_tls.h"

namespace winhttp {

// Whether the program runs with more rights than its caller, to whose environment it must not listen then.
bool IsPrivileged();

// What one transfer at a time needs; the easy handle may be added to the multi handle and has no option set.
class Transfer {
  public:
    Transfer();  // throws std::bad_alloc
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    CURL* easy() const { return easy_; }
    CURLM* multi() const { return multi_; }
    pid_t owner() const { return owner_; }

    // Makes the transfer use the sessions of `tls`. For a transfer that had none before.
    CURLcode Use(std::shared_ptr<const TlsShare> tls);
    const TlsShare* tls() const { return tls_.get(); }
    // Drops all options and the sessions.
    void Reset();

  private:
    CURL* easy_;
    CURLM* multi_;
    const pid_t owner_;
    std::shared_ptr<const TlsShare> tls_;
};

// An idle transfer, or a new one. Throws std::bad_alloc.
std::unique_ptr<Transfer> TakeTransfer();

// For a transfer that has ended well and is no longer in its multi handle; destroys it when there is no place.
void ReturnTransfer(std::unique_ptr<Transfer> transfer);

}  // namespace winhttp
