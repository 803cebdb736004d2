// Blocks of the process heap that hold key material, wiped whole before they are freed.
#pragma once

#include "platform/owner.h"
#include "platform/platform.h"
#include "support/wipe.h"

class WipedBlock : private NonCopyable {
  public:
    ~WipedBlock() { Reset(nullptr, 0); }

    // Replaces the block with a zeroed one. False: no memory.
    bool Allocate(SIZE_T size)
    {
        Reset(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size), size);
        return data_;
    }
    // Takes over a block of the process heap.
    void Reset(void* block, SIZE_T size)
    {
        Wipe(data_, size_);
        HeapFree(GetProcessHeap(), 0, data_);
        data_ = static_cast<BYTE*>(block);
        size_ = data_ ? size : 0;
    }
    BYTE* data() const { return data_; }
    SIZE_T size() const { return size_; }

  private:
    BYTE* data_ = nullptr;
    SIZE_T size_ = 0;
};

// A structure that the platform decoded. It may point into the encoded bytes, which must outlive it.
template <typename T>
class DecodedStructure {
  public:
    // False: not such a structure, or no memory.
    bool Decode(LPCSTR structType, const BYTE* encoded, DWORD cbEncoded)
    {
        CRYPT_DECODE_PARA allocator = {sizeof(allocator), Allocate, Free};
        void* decoded = nullptr;
        DWORD size = 0;
        const bool good = CryptDecodeObjectEx(X509_ASN_ENCODING, structType, encoded, cbEncoded,
                                              CRYPT_DECODE_ALLOC_FLAG | CRYPT_DECODE_NOCOPY_FLAG, &allocator, &decoded,
                                              &size) != FALSE;
        block_.Reset(good ? decoded : nullptr, size);
        return good;
    }
    const T* get() const { return reinterpret_cast<const T*>(block_.data()); }
    const T* operator->() const { return get(); }
    SIZE_T size() const { return block_.size(); }  // with the parts after the structure

  private:
    static LPVOID WINAPI Allocate(size_t size) { return HeapAlloc(GetProcessHeap(), 0, size); }
    static VOID WINAPI Free(LPVOID block) { HeapFree(GetProcessHeap(), 0, block); }

    WipedBlock block_;
};
