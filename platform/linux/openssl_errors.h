// Keeps what a failed call leaves in OpenSSL's error queue from the thread's next user of OpenSSL, such as the host.
#pragma once

#include <openssl/err.h>

class QuietOpenssl {
  public:
    QuietOpenssl() { ERR_set_mark(); }
    ~QuietOpenssl() { ERR_pop_to_mark(); }
    QuietOpenssl(const QuietOpenssl&) = delete;
    QuietOpenssl& operator=(const QuietOpenssl&) = delete;
};
