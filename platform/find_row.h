// Looks up a row of a table.
#pragma once

#include <stddef.h>

// The first row that passes the test, or NULL.
template <typename Row, size_t kCount, typename Test>
constexpr const Row* FindRow(const Row (&rows)[kCount], Test test)
{
    for (const Row& row : rows) {
        if (test(row))
            return &row;
    }
    return nullptr;
}
