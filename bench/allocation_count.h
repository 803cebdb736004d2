// Counts what this program takes from the heap.
#pragma once

// Calls of malloc, calloc and realloc so far.
long AllocationCount();
