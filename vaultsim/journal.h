// The requests received, in order, and counters.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "vaultsim/call.h"
#include "vaultsim/json.h"

namespace vaultsim {

class Journal {
  public:
    // Call this before the first byte of the answer is sent. `fault` empty: none. status 0: no answer.
    void Add(const Call& call, int status, const std::string& fault);
    void Clear();
    Json Read(uint64_t since) const;  // the entries after that sequence number

  private:
    struct Entry {
        uint64_t sequence;
        Call call;
        int status;
        std::string fault;
    };
    static constexpr size_t kMost = 50000;  // older entries are dropped

    mutable std::mutex mutex_;
    uint64_t next_ = 1;
    std::deque<Entry> entries_;
};

struct Counts {
    std::atomic<uint64_t> connections{0};
    std::atomic<uint64_t> tlsHandshakes{0};
    std::atomic<uint64_t> failedHandshakes{0};
    std::atomic<uint64_t> requests{0};
    std::atomic<uint64_t> signIns{0};  // tokens issued by any of the services

    Json Read() const;
    void Clear();
};

}  // namespace vaultsim
