#include "kelvaroctl/wait_notice.h"

namespace kelvaroctl {

using std::chrono::seconds;

std::vector<WaitLine> WaitLines(const std::string& host)
{
    const std::string text = "still waiting for " + host;
    return {{seconds(5), text + " (up to 200 s)"}, {seconds(205), text + " (up to 600 s; it doesn't answer at all)"}};
}

WaitNotice::WaitNotice(std::ostream* out, std::vector<WaitLine> lines)
    : out_(out), lines_(std::move(lines)), thread_([this] { Run(); })
{
}

WaitNotice::~WaitNotice()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ends_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void WaitNotice::Restart()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        start_ = std::chrono::steady_clock::now();
    }
    changed_.notify_one();
}

void WaitNotice::Run()
{
    std::unique_lock<std::mutex> lock(mutex_);
    auto start = start_;
    size_t next = 0;
    while (!ends_) {
        if (start != start_) {
            start = start_;
            next = 0;
        }
        if (next == lines_.size()) {
            changed_.wait(lock);
        } else if (changed_.wait_until(lock, start + lines_[next].after) == std::cv_status::timeout && !ends_ &&
                   start == start_) {
            // Overwrites a progress line, which is shorter.
            *out_ << '\r' << lines_[next].text << std::endl;
            ++next;
        }
    }
}

}  // namespace kelvaroctl
