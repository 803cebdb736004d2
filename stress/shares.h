// Divides work among processes.
#pragma once

#include <cstdio>
#include <functional>

namespace stress {

// Runs `work` in `shares` processes, each of which writes JSON objects to `out`, one per line. Prints all of them as
// one array. Returns the exit code: 1 if a process failed.
int PrintInShares(int shares, const std::function<void(int share, int shares, FILE* out)>& work);

}  // namespace stress
