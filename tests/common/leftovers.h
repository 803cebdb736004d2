// The resources that the process has now, to find what a module leaves behind.
#pragma once

#include <cstddef>

struct Holdings {
    size_t threads = 0;
    size_t handles = 0;  // file descriptors on Linux
    size_t heap = 0;     // blocks of the process heap; on Linux 16 bytes each, which is the least that a block takes
};
Holdings TakeStock();
