#include "keyvault/web_call_body.h"

#include <string.h>

#include <algorithm>

#include "platform/owner.h"
#include "support/clock.h"

namespace {

// The answers of signatures and sign-ins fit in the first block.
constexpr size_t kFirstBlock = 2048;

// A growing byte text. Outgrown blocks are wiped: an answer may contain a token or plaintext.
class GrowingBytes : private NonCopyable {
  public:
    ~GrowingBytes() { WipeFree(bytes_, room_); }

    size_t size() const { return size_; }
    char* end() const { return bytes_ + size_; }

    // Makes room for `more` bytes after the end. False: no memory, and nothing has changed.
    bool Reserve(size_t more)
    {
        if (bytes_ && more < room_ - size_)
            return true;
        const size_t room = std::max({kFirstBlock, 2 * room_, size_ + more + 1});
        char* grown = static_cast<char*>(WipeRealloc(bytes_, room_, room));
        if (!grown)
            return false;
        bytes_ = grown;
        room_ = room;
        return true;
    }

    // Call after `count` bytes have been written at the end.
    void Extend(size_t count)
    {
        size_ += count;
        bytes_[size_] = 0;
    }

    // Hands the text over. Wipes the rest of the block, since its owner wipes only up to the terminator.
    SecretBytesPtr Take()
    {
        bytes_[size_] = 0;  // a failed read may have written something
        const size_t length = strlen(bytes_);
        Wipe(bytes_ + length, room_ - length);
        SecretBytesPtr taken(bytes_);
        bytes_ = nullptr;
        return taken;
    }

  private:
    char* bytes_ = nullptr;
    size_t size_ = 0;
    size_t room_ = 0;
};

// The error if the answer exceeds a limit, else 0.
DWORD BoundError(uint64_t sentAtMs, size_t size)
{
    if (ClockTickMs() - sentAtMs >= kAnswerLimitMs)
        return ERROR_WINHTTP_TIMEOUT;
    return size > kAnswerLimitBytes ? DWORD{ERROR_FILE_TOO_LARGE} : DWORD{ERROR_SUCCESS};
}

}  // namespace

WebCallBody ReadWebCallBody(HINTERNET request, uint64_t sentAtMs)
{
    GrowingBytes body;
    DWORD available = 0;
    const auto broken = [&](const WCHAR* failure, DWORD error) { return WebCallBody{body.Take(), failure, error}; };
    do {
        if (!body.Reserve(available))
            return {nullptr, TEXT("KVCDoWebCall calloc failure"), HeapError()};
        DWORD read = 0;
        if (available != 0 && !WinHttpReadData(request, body.end(), available, &read))
            return broken(TEXT("KVCDoWebCall WinHttpReadData"), GetLastError());
        body.Extend(read);
        if (!WinHttpQueryDataAvailable(request, &available))
            return broken(TEXT("KVCDoWebCall WinHttpQueryDataAvailable"), GetLastError());
        const DWORD error = available != 0 ? BoundError(sentAtMs, body.size() + available) : DWORD{ERROR_SUCCESS};
        if (error != ERROR_SUCCESS)
            return broken(TEXT("KVCDoWebCall WinHttpReadData"), error);
    } while (available != 0);
    return broken(nullptr, ERROR_SUCCESS);
}
