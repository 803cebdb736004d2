// The baseline: the system's HTTP library and nothing else, libcurl on Linux and WinHTTP on Windows. A fresh connection
// for each request; what can be kept between them is kept.
#pragma once

#include <memory>

#include "bench/vault.h"

namespace bench {

class BareClient {
  public:
    // resumesSessions: only the first TLS handshake is a full one. WinHTTP decides that by itself.
    explicit BareClient(bool resumesSessions = false);
    ~BareClient();
    BareClient(const BareClient&) = delete;
    BareClient& operator=(const BareClient&) = delete;

    static bool ChoosesSessions();

    // Sends the request and reads the whole answer; throws when its status is not 200.
    void Send(const Recorded& request);

  private:
    struct State;
    const std::unique_ptr<State> state_;
};

}  // namespace bench
