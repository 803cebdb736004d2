#include "vaultsim/journal.h"

namespace vaultsim {

void Journal::Add(const Call& call, int status, const std::string& fault)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    entries_.push_back({next_++, call, status, fault});
    if (entries_.size() > kMost)
        entries_.pop_front();
}

void Journal::Clear()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
    next_ = 1;
}

Json Journal::Read(uint64_t since) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    Json requests = Json::array();
    for (const Entry& entry : entries_) {
        if (entry.sequence <= since)
            continue;
        const Call& call = entry.call;
        requests.push_back({{"seq", entry.sequence},
                            {"listener", call.listener},
                            {"method", call.method},
                            {"host", call.host},
                            {"target", call.target},
                            {"requestLine", call.requestLine},
                            {"headers", call.headerLines},
                            {"body", call.body},
                            {"status", entry.status},
                            {"fault", entry.fault.empty() ? Json(nullptr) : Json(entry.fault)}});
    }
    return {{"requests", requests}};
}

Json Counts::Read() const
{
    return {{"signins", signIns.load()},
            {"tls_handshakes", tlsHandshakes.load()},
            {"failed_handshakes", failedHandshakes.load()},
            {"connections", connections.load()},
            {"requests", requests.load()}};
}

void Counts::Clear()
{
    connections = tlsHandshakes = failedHandshakes = requests = signIns = 0;
}

}  // namespace vaultsim
