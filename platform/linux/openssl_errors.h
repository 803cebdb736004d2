// Removes what failed calls leave in OpenSSL's error queue, which the host's own use of OpenSSL would see.
#pragma once

#include <openssl/err.h>

class QuietOpenssl {
  public:
    QuietOpenssl() { ERR_set_mark(); }
    ~QuietOpenssl() { ERR_pop_to_mark(); }
    QuietOpenssl(const QuietOpenssl&) = delete;
    QuietOpenssl& operator=(const QuietOpenssl&) = delete;
};
