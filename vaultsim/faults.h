// Faults that stand ready for coming requests.
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
    std::string path;  // a piece of the target
    std::string host;  // a piece of the host
    int skip = 0;      // matching requests that pass before
    int times = 1;     // -1: for ever

    // What happens.
    FaultAction action = FaultAction::Status;
    std::string actionName;
    bool perform = false;  // carry the operation out though its answer is replaced
    int status = 0;
    std::vector<std::string> headerLines;
    std::optional<std::string> body;
    int delayMs = 0;        // before the answer; between the pieces of a drip
    size_t afterBytes = 0;  // of the answer's body; the size of a piece of a drip
    bool inHead = false;    // afterBytes counts from the first byte of the answer
    std::string raw;

    // Whether the request reaches the service.
    bool Performs() const;
    // The answer that takes the place of the service's.
    Answer Replace(const Answer& answer) const;
};

// Throws std::invalid_argument for an unknown action and nlohmann's exceptions for members of a wrong type.
Fault ParseFault(const Json& json);

class Faults {
  public:
    void Add(Fault fault);
    void Clear();
    std::optional<Fault> Take(const Call& call);  // the first that matches, and counts it down

  private:
    std::mutex mutex_;
    std::deque<Fault> queue_;
};

}  // namespace vaultsim
