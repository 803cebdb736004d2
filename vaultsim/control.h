// The control interface: plain HTTP with JSON on its own port. README.md lists the calls.
#pragma once

#include <functional>
#include <memory>
#include <thread>

namespace httplib {
class Server;
}

namespace vaultsim {

class Simulator;

class Control {
  public:
    // `stop` is called by POST /stop. Throws std::runtime_error if the port is taken.
    Control(Simulator& simulator, int port, std::function<void()> stop);
    ~Control();

    int port() const { return port_; }

  private:
    std::unique_ptr<httplib::Server> server_;
    int port_ = 0;
    std::thread thread_;
};

}  // namespace vaultsim
