// One connection, with or without TLS. Not cpp-httplib's, because faults can break it at any byte.
#pragma once

#include <string>
#include <string_view>

#include "vaultsim/openssl_ptr.h"

namespace vaultsim {

class Connection {
  public:
    // Takes ownership of the socket. `context` null: no TLS.
    Connection(int socket, SslContext context);
    ~Connection();  // closes gracefully: everything written is delivered

    bool Handshake();                // blocks; true at once without TLS
    bool Read(std::string& buffer);  // appends what arrives; blocks until something does. False at the end
    bool Write(std::string_view bytes);
    void Reset() { reset_ = true; }  // the destructor will reset the connection

  private:
    int socket_;
    SslContext context_;
    SslPtr ssl_;
    bool reset_ = false;
};

}  // namespace vaultsim
