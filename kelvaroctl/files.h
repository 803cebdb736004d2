// Files named on the command line. Names are UTF-8.
#pragma once

#include <functional>
#include <string>

#include "kelvaroctl/text.h"
#include "platform/owner.h"

namespace kelvaroctl {

// Calls take() with each piece of the file, or of standard input for "-". Throws a usage failure if it can't be read.
void ReadInPieces(const std::string& name, const std::function<void(const char* piece, size_t size)>& take);

// Throws a usage failure if the file, or standard input for "-", can't be read or is larger than maxSize bytes.
Bytes ReadInput(const std::string& name, size_t maxSize);

enum class Readers { Everyone, OwnerOnly };

// An output file, checked before the vault produces its content: each operation of the vault costs money. The old
// content is kept until Write; a new file is removed if Write isn't called.
class OutputFile : NonCopyable {
  public:
    // name: empty for none. input: the command's input file, which must be a different one; or "". Throws a usage
    // failure if the file cannot be written.
    OutputFile(const std::string& name, const std::string& input, Readers readers = Readers::Everyone);
    ~OutputFile();

    const std::string& name() const { return name_; }
    // Replaces the content. Throws a usage failure if that fails.
    void Write(const Bytes& content);

  private:
    std::string name_;
    bool isNew_ = false;
};

}  // namespace kelvaroctl
