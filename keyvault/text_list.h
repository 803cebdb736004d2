// A growing list of texts. Listings fill it page by page, and read it once at the end.
#pragma once

#include "platform/owner.h"
#include "support/text.h"

// Uses one byte per character where that is enough, and frees its memory while it is read, so that a long list is never
// in memory twice.
class TextList : private NonCopyable {
  public:
    static constexpr size_t kLongestText = 127;  // characters

    ~TextList();

    // Adds a copy of a text of at most kLongestText characters. False: no memory, or the text is longer; the list is
    // unchanged.
    bool Add(TextView text);

    size_t count() const { return count_; }  // texts not yet taken
    size_t FirstLength() const;              // in characters; the list must not be empty

    // Removes the first text and copies it to a buffer of cchBuffer characters, terminated, and cut if it doesn't fit.
    void TakeFirst(WCHAR* buffer, size_t cchBuffer);

  private:
    struct Chunk;
    struct Entry;

    Entry First() const;
    bool AddChunk(size_t needed);
    void DropFirstChunk();

    Chunk* first_ = nullptr;
    Chunk* last_ = nullptr;
    size_t taken_ = 0;  // bytes taken from the first chunk
    size_t held_ = 0;   // bytes in all chunks
    size_t count_ = 0;
};
