// Counts this program's heap allocations.
#pragma once

// Calls of malloc, calloc and realloc so far.
long AllocationCount();
