// The services' behaviour, as the control interface sets it.
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
    size_t emptyEvery = 0;    // every n-th page has no items; 0: off
    bool firstEmpty = false;  // the first page has no items
};

struct TokenSettings {
    int64_t lifetimeSeconds = 3600;
    std::string oid;
    std::vector<std::string> omit;  // members to leave out of answer and claims
    std::string tokenType = "Bearer";
};

struct Settings {
    LatencySettings latency;
    PagingSettings paging;
    TokenSettings tokens;
    bool secretExpired = false;      // the directory refuses the right secret
    int64_t clockOffsetSeconds = 0;  // of `Date` in all answers
    int beingDeletedAnswers = 0;     // responses before a deletion is complete
    std::string arcRealmPrefix;      // put before the path in the Arc challenge
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

// Sleeps for the connection threads; Stop wakes them all.
class Pauser {
  public:
    void Sleep(int ms);
    void Stop();

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopped_ = false;
};

// Applies the members that `json` has to the group of this name: "latency", "tokens", "paging", "deletion", "secret",
// "clock" or "arc". Throws nlohmann's exceptions or std::invalid_argument.
void Apply(Settings& settings, const std::string& group, const Json& json);

}  // namespace vaultsim
