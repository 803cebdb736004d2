// libcurl's handles, reused from one request to the next, since new ones cost a pair of sockets and memory. No
// connection and no part of a request is kept.
#pragma once

#include <curl/curl.h>
#include <sys/types.h>

#include <memory>

#include "platform/linux/winhttp_tls.h"

namespace winhttp {

// Whether the program has more rights than its caller. It must then ignore the caller's environment.
bool IsPrivileged();

// The handles for one transfer at a time; the easy handle has no option set.
class Transfer {
  public:
    Transfer();  // throws std::bad_alloc

    CURL* easy() const { return easy_.get(); }
    CURLM* multi() const { return multi_.get(); }
    pid_t owner() const { return owner_; }

    // Makes the transfer use the sessions of `tls`. Call once per transfer.
    CURLcode Use(std::shared_ptr<const TlsShare> tls);
    const TlsShare* tls() const { return tls_.get(); }
    // Drops all options and the sessions.
    void Reset();

  private:
    // The handles must go before the sessions that they share, the easy one first.
    std::shared_ptr<const TlsShare> tls_;
    Owner<CURLM, curl_multi_cleanup> multi_;
    Owner<CURL, curl_easy_cleanup> easy_;
    const pid_t owner_;
};

// An idle transfer, or a new one. Throws std::bad_alloc.
std::unique_ptr<Transfer> TakeTransfer();

// For a transfer that succeeded and has left its multi handle; destroys it if the pool is full.
void ReturnTransfer(std::unique_ptr<Transfer> transfer);

}  // namespace winhttp
