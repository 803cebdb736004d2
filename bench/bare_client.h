// The baseline: only the system's HTTP library, libcurl on Linux and WinHTTP on Windows. Each request uses a new
// connection; everything else is reused if possible.
#pragma once

#include <memory>

#include "bench/vault.h"

namespace bench {

class BareClient {
  public:
    // resumesSessions: only the first TLS handshake is a full one. With WinHTTP this has no effect: it decides itself.
    explicit BareClient(bool resumesSessions = false);
    ~BareClient();

    static bool ChoosesSessions();

    // Sends the request and reads the whole answer; throws if its status isn't 200.
    void Send(const Recorded& request);

  private:
    struct State;
    const std::unique_ptr<State> state_;
};

}  // namespace bench
