// The control interface: plain HTTP with JSON on a port of its own. README.md lists the calls.
#pragma once

#include <httplib.h>

#include <functional>
#include <string>
#include <thread>

#include "vaultsim/json.h"
#include "vaultsim/simulator.h"

namespace vaultsim {

class Control {
  public:
    Control(Simulator& simulator, int port, std::function<void()> stop);
    ~Control();
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

    int port() const { return port_; }

  private:
    // `path` is what stands in brackets in the pattern, in order. The result is the answer; throwing gives a 400 with
    // the text.
    using Handler = std::function<Json(const std::vector<std::string>& path, const httplib::Request& request)>;
    using Change = std::function<void(const Json& body)>;
    httplib::Server::Handler Wrap(Handler handler) const;
    void Put(const char* pattern, Change change);
    void AddJournal();
    void AddFaults();
    void AddSettings();
    void AddListeners();
    void AddVaults();
    void AddLife(std::function<void()> stop);

    Simulator& simulator_;
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
};

}  // namespace vaultsim
