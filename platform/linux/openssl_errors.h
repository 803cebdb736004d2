// Removes what failed calls leave in OpenSSL's error queue, which the host's own use of OpenSSL would see.
#pragma once

#include <openssl/err.h>

#include "platform/owner.h"

class QuietOpenssl : private NonCopyable {
  public:
    QuietOpenssl() { ERR_set_mark(); }
    ~QuietOpenssl() { ERR_pop_to_mark(); }
};
