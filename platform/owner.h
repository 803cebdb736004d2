// A smart pointer for what a C function frees.
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
