// A loopback port on which every TLS connection fails.
#pragma once

#include <mutex>
#include <thread>
#include <vector>

namespace stress {

enum class GateFault { None, Refuse, SilentAtConnect, ResetAtConnect, ResetInHandshake, SilentInHandshake };

class Gate {
  public:
    explicit Gate(GateFault fault);
    ~Gate();
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    int port() const { return port_; }

  private:
    void Accept();
    void Serve(int socket) const;
    void FillQueue();

    GateFault fault_;
    int listener_ = -1;
    int port_ = 0;
    std::vector<int> sockets_;
    std::vector<std::thread> connections_;
    std::thread acceptor_;
};

}  // namespace stress
