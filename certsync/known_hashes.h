// The hashes in CertSync, indexed for a run over a whole vault.
#pragma once

#include "support/bldstr.h"
#include "support/guards.h"
#include "support/text.h"

// A hash is known if its digits occur anywhere in the text, even across a missing comma. The index finds SHA-1 hashes,
// which have 40 digits, in constant time; other hashes need a search of the text, and so does everything if there was
// no memory for an index.
class KnownHashes {
  public:
    explicit KnownHashes(BldStrPtr list);  // the text of CertSync, not NULL

    bool Contains(TextView hash) const;
    bool Add(const WCHAR* hash);  // and a comma; false: no memory
    const BldStr* list() const { return list_.get(); }

  private:
    void IndexFrom(size_t start);
    void Insert(DWORD offset);
    DWORD* Find(const WCHAR* digits) const;
    bool MakeRoom(size_t chars);
    bool MakeSlots(size_t count);

    BldStrPtr list_;
    // The offset in the text, plus 1, of each run of 40 digits; 0 is a free slot. slotCount_ is a power of 2, and at
    // most half of the slots are used.
    MallocPtr<DWORD> slots_;
    size_t slotCount_ = 0;
    size_t used_ = 0;
};
