// Strings and bytes that may hold a secret. Their memory is wiped before it is freed, including the old block when they
// grow.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"

template <typename T>
struct WipingAllocator {
    using value_type = T;

    WipingAllocator() = default;
    template <typename Other>
    WipingAllocator(const WipingAllocator<Other>&)
    {
    }

    T* allocate(size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T* block, size_t count)
    {
        SecureZeroMemory(block, count * sizeof(T));
        std::allocator<T>().deallocate(block, count);
    }

    bool operator==(const WipingAllocator&) const { return true; }
    bool operator!=(const WipingAllocator&) const { return false; }
};

// A short string is kept inside the object, where no allocator sees it: the destructor wipes it.
template <typename Unit>
class BasicSecretString : public std::basic_string<Unit, std::char_traits<Unit>, WipingAllocator<Unit>> {
  public:
    using std::basic_string<Unit, std::char_traits<Unit>, WipingAllocator<Unit>>::basic_string;
    BasicSecretString() = default;
    BasicSecretString(const BasicSecretString&) = default;
    BasicSecretString(BasicSecretString&&) noexcept = default;
    BasicSecretString& operator=(const BasicSecretString&) = default;
    BasicSecretString& operator=(BasicSecretString&&) noexcept = default;
    ~BasicSecretString()
    {
        this->resize(this->capacity());
        SecureZeroMemory(this->data(), this->size() * sizeof(Unit));
    }
};

using SecretBytes = std::vector<BYTE, WipingAllocator<BYTE>>;
using SecretString = BasicSecretString<char>;
using SecretText = BasicSecretString<WCHAR>;
