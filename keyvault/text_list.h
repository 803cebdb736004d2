// A list of texts that grows, as listings gather it: page by page, and read once at the end.
#pragma once

#include "support/text.h"

// Takes one byte a character where that is enough, and gives its memory back while it is read, so that a long list is
// never in memory twice.
class TextList {
  public:
    static constexpr size_t kLongestText = 127;  // characters

    TextList() = default;
    ~TextList();
    TextList(const TextList&) = delete;
    TextList& operator=(const TextList&) = delete;

    // Adds a copy of a text of at most kLongestText characters. False: no memory, or a longer text; the list is what it
    // was.
    bool Add(TextView text);

    size_t count() const { return count_; }  // texts that haven't been taken
    size_t FirstLength() const;              // characters of the first one; there must be one

    // Takes the first text out into a buffer of cchBuffer characters, terminated, and cut if it doesn't fit.
    void TakeFirst(WCHAR* buffer, size_t cchBuffer);

  private:
    struct Chunk;
    struct Entry;

    Entry First() const;
    bool AddChunk(size_t needed);
    void DropFirstChunk();

    Chunk* first_ = nullptr;
    Chunk* last_ = nullptr;
    size_t taken_ = 0;  // bytes of the first chunk
    size_t held_ = 0;   // bytes of all chunks
    size_t count_ = 0;
};
