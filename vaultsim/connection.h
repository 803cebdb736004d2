// One connection, with or without TLS.
#pragma once

#include <string>
#include <string_view>

#include "vaultsim/openssl_ptr.h"

namespace vaultsim {

class Connection {
  public:
    // Takes the socket over. `context` null: no TLS.
    Connection(int socket, SslContext context);
    ~Connection();  // closes in order, so that what has been written arrives
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool Handshake();                // blocks; true at once without TLS
    bool Read(std::string& buffer);  // adds what has come; blocks until something has. False at the end
    bool Write(std::string_view bytes);
    void Reset() { reset_ = true; }  // the peer will see a broken connection in place of an orderly end

  private:
    int socket_;
    SslContext context_;
    SslPtr ssl_;
    bool reset_ = false;
};

}  // namespace vaultsim
