// Smart pointers for what a function of the platform frees.
#pragma once

#include <memory>

namespace kelvaroctl {

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

}  // namespace kelvaroctl
