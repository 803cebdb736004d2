// Work that several processes share.
#pragma once

#include <cstdio>
#include <functional>

namespace stress {

// Does the work in so many processes, each of which writes JSON objects, one a line. Prints an array of all of them; 1
// if a process failed.
int PrintInShares(int shares, const std::function<void(int share, int shares, FILE* out)>& work);

}  // namespace stress
