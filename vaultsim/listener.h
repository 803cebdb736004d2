// A listening socket with a thread that accepts.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace vaultsim {

class Listener {
  public:
    // address: an IPv4 address in digits. port 0: the kernel's choice. `accepted` gets the socket and owns it; it must
    // not block. Throws std::system_error.
    Listener(const std::string& address, int port, std::function<void(int)> accepted);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    int port() const { return port_; }
    void Up();    // no effect when up
    void Down();  // connections are refused at once; the port stays ours. Returns when no more are accepted

  private:
    int Bind() const;
    void Accept(int listening);
    void StopAccepting();

    std::function<void(int)> accepted_;
    std::string address_;
    int port_ = 0;
    int wake_ = -1;
    std::mutex mutex_;
    int socket_ = -1;
    std::thread thread_;
};

}  // namespace vaultsim
