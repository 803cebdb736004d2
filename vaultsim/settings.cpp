#include "vaultsim/settings.h"

#include <stdexcept>

namespace vaultsim {

void Pauser::Sleep(int ms)
{
    if (ms <= 0)
        return;
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, std::chrono::milliseconds(ms), [this] { return stopped_; });
}

void Pauser::Stop()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = true;
    changed_.notify_all();
}

static void ApplyPaging(PagingSettings& paging, const Json& json)
{
    PagingSettings changed = paging;
    changed.maxPage = json.value("maxPage", paging.maxPage);
    changed.emptyEvery = json.value("emptyEvery", paging.emptyEvery);
    changed.firstEmpty = json.value("firstEmpty", paging.firstEmpty);
    if (changed.maxPage == 0 || changed.emptyEvery == 1)
        throw std::invalid_argument("no listing would ever end");
    paging = changed;
}

static void ApplyTokens(TokenSettings& tokens, const Json& json)
{
    tokens.lifetimeSeconds = json.value("lifetimeSeconds", tokens.lifetimeSeconds);
    tokens.oid = json.value("oid", tokens.oid);
    tokens.omit = json.value("omit", tokens.omit);
    tokens.tokenType = json.value("tokenType", tokens.tokenType);
}

void Apply(Settings& settings, const std::string& group, const Json& json)
{
    if (group == "latency")
        settings.latency = {json.at("ms").get<int>(), json.value("signin", false)};
    else if (group == "paging")
        ApplyPaging(settings.paging, json);
    else if (group == "tokens")
        ApplyTokens(settings.tokens, json);
    else if (group == "deletion")
        settings.beingDeletedAnswers = json.at("beingDeletedAnswers").get<int>();
    else if (group == "secret")
        settings.secretExpired = json.at("expired").get<bool>();
    else if (group == "clock")
        settings.clockOffsetSeconds = json.at("offsetSeconds").get<int64_t>();
    else
        settings.arcRealmPrefix = json.at("realmPrefix").get<std::string>();
}

}  // namespace vaultsim
