#include "certsync/known_hashes.h"

#include <string.h>

#include <utility>

namespace {

constexpr size_t kDigits = 40;  // of a SHA-1 hash
constexpr size_t kFirstSlots = 256;

bool IsDigit(WCHAR ch)
{
    return (ch >= '0' && ch <= '9') || (ch >= 'A' && ch <= 'F');
}

// FNV-1a. The digits are already a hash; this only folds them.
size_t Fold(const WCHAR* digits)
{
    uint32_t folded = 2166136261U;
    for (size_t i = 0; i < kDigits; i++)
        folded = (folded ^ digits[i]) * 16777619U;
    return folded ^ folded >> 15;
}

}  // namespace

KnownHashes::KnownHashes(BldStrPtr list) : list_(std::move(list))
{
    if (MakeSlots(kFirstSlots))
        IndexFrom(0);
}

bool KnownHashes::Contains(TextView hash) const
{
    if (hash.size() == kDigits && slots_)
        return *Find(hash.data()) != 0;
    return TextContains(list_->cStr, hash);
}

bool KnownHashes::Add(const WCHAR* hash)
{
    const size_t before = list_->length;
    if (!MakeRoom(before + View(hash).size() + 1) || !BldStrCat(list_.get(), hash) ||
        !BldStrCat(list_.get(), TEXT(",")))
        return false;
    // The digits before may combine with the new ones.
    IndexFrom(before < kDigits ? 0 : before - (kDigits - 1));
    return true;
}

// Indexes each run of 40 digits in the text from `start` on.
void KnownHashes::IndexFrom(size_t start)
{
    size_t run = 0;
    for (size_t i = start; i < list_->length && slots_; i++) {
        run = IsDigit(list_->cStr[i]) ? run + 1 : 0;
        if (run >= kDigits)
            Insert(static_cast<DWORD>(i + 1 - kDigits));
    }
}

void KnownHashes::Insert(DWORD offset)
{
    DWORD* slot = Find(list_->cStr + offset);
    if (*slot)
        return;
    *slot = offset + 1;
    used_++;
    if (2 * used_ > slotCount_)
        MakeSlots(2 * slotCount_);
}

// The slot of these digits, or the free one for them.
DWORD* KnownHashes::Find(const WCHAR* digits) const
{
    size_t at = Fold(digits) & (slotCount_ - 1);
    DWORD* const slots = slots_.get();
    while (slots[at] && memcmp(list_->cStr + slots[at] - 1, digits, kDigits * sizeof(WCHAR)) != 0)
        at = (at + 1) & (slotCount_ - 1);
    return &slots[at];
}

// Resizes the index to `count` slots. False, with the index dropped: no memory.
bool KnownHashes::MakeSlots(size_t count)
{
    const MallocPtr<DWORD> old = std::move(slots_);
    const size_t oldCount = slotCount_;
    slots_.reset(static_cast<DWORD*>(calloc(count, sizeof(DWORD))));
    slotCount_ = slots_ ? count : 0;
    for (size_t i = 0; i < oldCount && slots_; i++) {
        if (old.get()[i])
            *Find(list_->cStr + old.get()[i] - 1) = old.get()[i];
    }
    return slots_ != nullptr;
}

// A BldStr grows by just what is appended. Doubling here saves copying the list for each hash.
bool KnownHashes::MakeRoom(size_t chars)
{
    if (chars < list_->capacity / sizeof(WCHAR))
        return true;
    BldStrPtr larger(chars <= UINT32_MAX / 2 ? BldStrNew(static_cast<DWORD>(2 * chars)) : nullptr);
    if (!larger || !BldStrCat(larger.get(), list_->cStr))
        return false;
    list_ = std::move(larger);
    return true;
}
