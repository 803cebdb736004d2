// The throttle rule: waits of 1, 2, 4, 8 and 16 seconds between the attempts of a throttled call.
#pragma once

#include "platform/platform.h"

class Throttle {
  public:
    // Logs "message" with `status` at level 2, sleeps the next wait on the system's clock and doubles it.
    // True: call again; false: the waits are used up and the operation has failed.
    bool WaitAndRetry(const WCHAR* message, DWORD status);

  private:
    DWORD waitMs_ = 1000;
};
