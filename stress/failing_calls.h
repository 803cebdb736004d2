// Makes calls of the platform fail that the module makes on this thread, and keeps count of what it opens and closes.
#pragma once

#include <climits>
#include <string>

namespace stress {

// While it lives, call number `failAt` (from 0) of this thread fails, with `allAfter` all later ones, too. One at a
// time.
class FailingCalls {
  public:
    explicit FailingCalls(int failAt = INT_MAX, bool allAfter = false);
    ~FailingCalls();
    FailingCalls(const FailingCalls&) = delete;
    FailingCalls& operator=(const FailingCalls&) = delete;

    static int Seen();          // so far
    static std::string Name();  // the call that failed first
};

// What the module holds: "Lock 1 RegistryKey 2". Nothing for what is all closed.
std::string HeldByModule();

}  // namespace stress
