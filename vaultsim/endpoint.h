// A listener and its connections: reads requests, gets their answers from a handler, and applies faults to them.
// Not cpp-httplib's server, because the journal records every byte of a head and faults can break any part of an
// answer.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <queue>
#include <set>
#include <string>

#include "vaultsim/authority.h"
#include "vaultsim/connection.h"
#include "vaultsim/faults.h"
#include "vaultsim/journal.h"
#include "vaultsim/listener.h"
#include "vaultsim/settings.h"

namespace vaultsim {

// What all endpoints share.
struct EndpointContext {
    std::string address;
    bool closing;  // close each TLS connection after its first answer
    Journal& journal;
    Counts& counts;
    Faults& faults;
    Pauser& pauser;
    const SettingsBox& settings;
};

class Endpoint {
  public:
    using Handler = std::function<Answer(const Call&)>;

    // `authority` null: no TLS. `handler` runs on many threads at a time.
    Endpoint(std::string name, int port, const Authority* authority, EndpointContext context, Handler handler);
    ~Endpoint();  // breaks open connections

    const std::string& name() const { return name_; }
    int port() const { return listener_->port(); }
    void Up() { listener_->Up(); }
    void Down() { listener_->Down(); }

  private:
    void Accepted(int socket);
    void Work();
    void Serve(int socket);
    void Talk(Connection& connection);
    std::optional<Call> ReadCall(Connection& connection, std::string& buffer);
    bool Exchange(Connection& connection, const Call& call);
    bool Deliver(Connection& connection, const Answer& answer, const std::optional<Fault>& fault, bool close);

    const std::string name_;
    const Authority* const authority_;
    const EndpointContext context_;
    const Handler handler_;
    std::mutex mutex_;
    std::condition_variable work_;
    std::condition_variable gone_;
    std::set<int> open_;       // sockets that the destructor may shut down
    std::queue<int> waiting_;  // sockets without a thread yet
    size_t threads_ = 0;
    size_t idle_ = 0;  // threads that wait for a connection
    bool ending_ = false;
    std::unique_ptr<Listener> listener_;
};

}  // namespace vaultsim
