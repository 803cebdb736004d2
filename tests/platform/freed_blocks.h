// Finds secrets in what this program's operator delete gets back. malloc, and so libcurl and OpenSSL, aren't watched.
#pragma once

#include <string_view>

// From construction to destruction, on this thread.
class FreedBlocks {
  public:
    explicit FreedBlocks(std::string_view secret);  // which must outlive this
    ~FreedBlocks();
    FreedBlocks(const FreedBlocks&) = delete;
    FreedBlocks& operator=(const FreedBlocks&) = delete;

    int withSecret() const;
};
