// What the control port can change about the services.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "vaultsim/json.h"

namespace vaultsim {

struct LatencySettings {
    int ms = 0;
    bool signIn = false;
};

struct PagingSettings {
    size_t maxPage = 25;
    size_t emptyEvery = 0;    // every n-th page has no items; 0: none
    bool firstEmpty = false;  // the first page has no items
};

struct TokenSettings {
    int64_t lifetimeSeconds = 3600;
    std::string oid;
    std::vector<std::string> omit;  // members left out of the answer
    std::string tokenType = "Bearer";
};

struct Settings {
    LatencySettings latency;
    PagingSettings paging;
    TokenSettings tokens;
    int beingDeletedAnswers = 0;  // refusals before a deletion is complete
    std::string arcRealmPrefix;   // stands before the path in the Arc challenge
};

class SettingsBox {
  public:
    explicit SettingsBox(const Settings& settings) : settings_(settings) {}
    Settings Get() const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return settings_;
    }
    template <class Change>
    void Update(Change change)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        change(settings_);
    }

  private:
    mutable std::mutex mutex_;
    Settings settings_;
};

// Waits of connection threads, all cut short when the simulator stops.
class Pauser {
  public:
    void Sleep(int ms);
    void Stop();

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopped_ = false;
};

// Each takes over the members that the JSON has. Throw nlohmann's exceptions or std::invalid_argument.
void Apply(LatencySettings& latency, const Json& json);
void Apply(PagingSettings& paging, const Json& json);
void Apply(TokenSettings& tokens, const Json& json);

}  // namespace vaultsim
