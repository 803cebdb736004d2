// A listening socket and the thread that accepts its connections.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace vaultsim {

class Listener {
  public:
    // address: an IPv4 address in digits. port 0: any free port. `accepted` owns the socket that it gets and must not
    // block. Throws std::system_error.
    Listener(const std::string& address, int port, std::function<void(int)> accepted);
    ~Listener();

    int port() const { return port_; }
    void Up();    // no effect when up
    void Down();  // refuses connections but keeps the port; after it returns, none is accepted

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
