// Faults queued for future requests.
#pragma once

#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "vaultsim/call.h"
#include "vaultsim/json.h"

namespace vaultsim {

enum class FaultAction { Status, Delay, ResetBefore, ResetInside, Truncate, Drip, Raw, NoJson };

struct Fault {
    // Which requests.
    std::string method = "*";
    std::string path;  // part of the target
    std::string host;  // part of the host
    int skip = 0;      // matching requests to let through first
    int times = 1;     // -1: forever

    // What happens.
    FaultAction action = FaultAction::Status;
    std::string actionName;
    bool perform = false;  // carry out the operation, even if its answer isn't sent
    int status = 0;
    std::vector<std::string> headerLines;
    std::optional<std::string> body;
    int delayMs = 0;        // before the answer; between the pieces of a drip
    size_t afterBytes = 0;  // of the answer's body; the size of a piece of a drip
    bool inHead = false;    // afterBytes counts from the first byte of the answer
    std::string raw;
    std::string repeat;  // sent after `raw` until the client closes the connection

    // What to send instead of the service's answer.
    Answer Replace(const Answer& answer) const;
};

// Throws std::invalid_argument for an unknown action and nlohmann's exceptions for members of a wrong type.
Fault ParseFault(const Json& json);

class Faults {
  public:
    void Add(Fault fault);
    void Clear();
    std::optional<Fault> Take(const Call& call);  // the first match, counted down

  private:
    std::mutex mutex_;
    std::deque<Fault> queue_;
};

}  // namespace vaultsim
