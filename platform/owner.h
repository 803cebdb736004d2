// A smart pointer for what a C function frees, and a base for classes that free something themselves.
#pragma once

#include <memory>

template <auto kFree>
struct Freer {
    template <typename T>
    void operator()(T* owned) const
    {
        kFree(owned);
    }
};
template <typename T, auto kFree>
using Owner = std::unique_ptr<T, Freer<kFree>>;

struct NonCopyable {
    NonCopyable() = default;
    NonCopyable(const NonCopyable&) = delete;
    NonCopyable& operator=(const NonCopyable&) = delete;
};
