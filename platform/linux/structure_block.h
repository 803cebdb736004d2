// Lays out a structure and what it points to in one block, in parts aligned to 8 bytes. Its pointers are valid once
// the block is copied to `target`. Wiped when destroyed, as it may contain a private key.
#pragma once

#include <string.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/der.h"
#include "platform/linux/win_crypt.h"
#include "platform/secret_memory.h"

class StructureBlock {
  public:
    explicit StructureBlock(void* target) : target_(reinterpret_cast<uintptr_t>(target)) {}

    const SecretString& bytes() const { return bytes_; }

    // Reserves zeroed room and returns its offset.
    size_t Reserve(size_t size)
    {
        const size_t offset = bytes_.size();
        bytes_.resize(offset + (size + kStep - 1) / kStep * kStep);
        return offset;
    }

    template <typename T>
    void Put(size_t offset, const T& part)
    {
        memcpy(bytes_.data() + offset, &part, sizeof part);
    }

    template <typename T>
    T* AddressOf(size_t offset) const
    {
        return reinterpret_cast<T*>(target_ + offset);
    }

    BYTE* Append(std::string_view part)
    {
        const size_t offset = Reserve(part.size());
        part.copy(bytes_.data() + offset, part.size());
        return AddressOf<BYTE>(offset);
    }

    LPSTR AppendText(const std::string& text)
    {
        return reinterpret_cast<LPSTR>(Append(std::string_view(text.c_str(), text.size() + 1)));
    }

    LPWSTR AppendText(const std::u16string& text)
    {
        const size_t size = (text.size() + 1) * sizeof(WCHAR);
        return reinterpret_cast<LPWSTR>(Append(BytesOf(reinterpret_cast<const BYTE*>(text.c_str()), size)));
    }

    template <typename T>
    T* AppendArray(const std::vector<T>& items)
    {
        return reinterpret_cast<T*>(
            Append(BytesOf(reinterpret_cast<const BYTE*>(items.data()), items.size() * sizeof(T))));
    }

    CRYPT_INTEGER_BLOB AppendBlob(std::string_view part)
    {
        return {static_cast<DWORD>(part.size()), part.empty() ? nullptr : Append(part)};
    }

  private:
    static constexpr size_t kStep = 8;
    uintptr_t target_;
    SecretString bytes_;
};
