// The hashes that CertSync lists, indexed for a run over a whole vault.
#pragma once

#include "support/guards.h"
#include "support/text.h"

// A hash counts as known wherever its digits stand in the text, across a missing comma too. The index answers for SHA-1
// hashes, which are 40 digits, in constant time; any other text is searched for from the start, as everything is when
// there was no memory for an index.
class KnownHashes {
  public:
    explicit KnownHashes(BldStrPtr list);  // not NULL, the text of CertSync
    ~KnownHashes();
    KnownHashes(const KnownHashes&) = delete;
    KnownHashes& operator=(const KnownHashes&) = delete;

    bool Contains(TextView hash) const;
    bool Add(const WCHAR* hash);  // with a comma behind it; false: no memory
    const BldStr* list() const { return list_.get(); }

  private:
    void IndexFrom(size_t start);
    void Insert(DWORD offset);
    DWORD* Find(const WCHAR* digits) const;
    bool MakeRoom(size_t chars);
    bool MakeSlots(size_t count);

    BldStrPtr list_;
    // Offsets into the text, plus 1, of each run of 40 digits; 0 is a free slot. A power of 2, at most half full.
    DWORD* slots_ = nullptr;
    size_t slotCount_ = 0;
    size_t used_ = 0;
};
