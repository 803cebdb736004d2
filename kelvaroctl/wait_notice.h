// Reports that a call is still waiting for the network.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace kelvaroctl {

// A line and when it is due, counted from the start of the wait.
struct WaitLine {
    std::chrono::milliseconds after;
    std::string text;
};

// The module tries a host ten times: 200 s if the connection is refused, 600 s if packets are dropped.
std::vector<WaitLine> WaitLines(const std::string& host);

// Writes the lines when they are due, from a separate thread, until it is destroyed.
class WaitNotice {
  public:
    // out: must outlive the notice. lines: in chronological order.
    WaitNotice(std::ostream* out, std::vector<WaitLine> lines);
    ~WaitNotice();

    // Starts the next wait.
    void Restart();

  private:
    void Run();

    std::ostream* out_;
    std::vector<WaitLine> lines_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    bool ends_ = false;
    std::thread thread_;  // last: it uses the others
};

}  // namespace kelvaroctl
