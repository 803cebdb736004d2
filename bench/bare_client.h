// The baseline: libcurl and nothing else. One handle, a fresh connection for each request, the trusted roots read once.
#pragma once

#include <curl/curl.h>

#include <string>

#include "bench/vault.h"

namespace bench {

class BareClient {
  public:
    // resumesSessions: only the first TLS handshake is a full one.
    explicit BareClient(bool resumesSessions = false);
    ~BareClient();
    BareClient(const BareClient&) = delete;
    BareClient& operator=(const BareClient&) = delete;

    // Sends the request and reads the whole answer; throws when its status is not 200.
    void Send(const Recorded& request);

  private:
    CURL* curl_;
    curl_slist* connectTo_ = nullptr;
    std::string answer_;
};

}  // namespace bench
