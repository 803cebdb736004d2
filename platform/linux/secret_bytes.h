// Bytes that may hold a secret: every block is wiped before it is freed, also the ones that the text outgrows.
#pragma once

#include <string.h>

#include <memory>
#include <string_view>
#include <vector>

template <class Value>
struct WipingAllocator : std::allocator<Value> {
    using value_type = Value;
    WipingAllocator() = default;
    template <class Other>
    WipingAllocator(const WipingAllocator<Other>&)
    {
    }
    template <class Other>
    struct rebind {
        using other = WipingAllocator<Other>;
    };

    void deallocate(Value* block, size_t count)
    {
        explicit_bzero(block, count * sizeof(Value));
        std::allocator<Value>::deallocate(block, count);
    }
};

// A vector, since a string keeps short texts inside itself, where no allocator wipes them.
using SecretBytes = std::vector<char, WipingAllocator<char>>;

inline std::string_view ViewOf(const SecretBytes& bytes)
{
    return std::string_view(bytes.data(), bytes.size());
}

inline void Append(SecretBytes* bytes, std::string_view more)
{
    bytes->insert(bytes->end(), more.begin(), more.end());
}
