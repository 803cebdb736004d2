#include "keyvault/text_list.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

namespace {

constexpr size_t kHeadBytes = 1;
constexpr size_t kSmallestChunk = 8000;
constexpr size_t kLargestChunk = 250000;

}  // namespace

// The head is followed by the texts. Each is a byte with twice its length in characters, plus 1 if they are wide, and
// the characters.
struct TextList::Chunk {
    Chunk* next;
    size_t size;  // bytes after the head
    size_t used;

    BYTE* bytes() { return reinterpret_cast<BYTE*>(this + 1); }
};

struct TextList::Entry {
    size_t length;  // characters
    size_t width;   // bytes of each
    const BYTE* characters;
};

TextList::~TextList()
{
    while (first_)
        DropFirstChunk();
}

bool TextList::Add(TextView text)
{
    const bool narrow = std::all_of(text.begin(), text.end(), [](WCHAR ch) { return ch < 0x100; });
    const size_t width = narrow ? 1 : sizeof(WCHAR);
    if (text.size() > kLongestText)
        return false;
    const size_t needed = kHeadBytes + text.size() * width;
    if ((!last_ || needed > last_->size - last_->used) && !AddChunk(needed))
        return false;

    BYTE* at = last_->bytes() + last_->used;
    *at = static_cast<BYTE>(text.size() << 1 | (narrow ? 0 : 1));
    at += kHeadBytes;
    if (narrow)
        std::transform(text.begin(), text.end(), at, [](WCHAR ch) { return static_cast<BYTE>(ch); });
    else
        memcpy(at, text.data(), text.size() * width);
    last_->used += needed;
    count_++;
    return true;
}

TextList::Entry TextList::First() const
{
    const BYTE* at = first_->bytes() + taken_;
    return {size_t{*at} >> 1, *at & 1 ? sizeof(WCHAR) : 1, at + kHeadBytes};
}

size_t TextList::FirstLength() const
{
    return First().length;
}

void TextList::TakeFirst(WCHAR* buffer, size_t cchBuffer)
{
    const Entry entry = First();
    const size_t length = std::min(entry.length, cchBuffer - 1);
    if (entry.width == 1)
        std::copy_n(entry.characters, length, buffer);
    else
        memcpy(buffer, entry.characters, length * sizeof(WCHAR));
    buffer[length] = 0;

    taken_ += kHeadBytes + entry.length * entry.width;
    count_--;
    if (taken_ == first_->used)
        DropFirstChunk();
}

// Chunks grow with the list: a short list wastes little, and a long one needs few allocations.
bool TextList::AddChunk(size_t needed)
{
    const size_t size = std::max(needed, std::min(std::max(held_ / 4, kSmallestChunk), kLargestChunk));
    Chunk* chunk = static_cast<Chunk*>(malloc(sizeof(Chunk) + size));
    if (!chunk)
        return false;
    *chunk = {nullptr, size, 0};
    (last_ ? last_->next : first_) = chunk;
    last_ = chunk;
    held_ += size;
    return true;
}

void TextList::DropFirstChunk()
{
    Chunk* const next = first_->next;
    held_ -= first_->size;
    free(first_);
    first_ = next;
    taken_ = 0;
    if (!next)
        last_ = nullptr;
}
