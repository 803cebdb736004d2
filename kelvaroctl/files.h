// Files that an administrator names. Names are UTF-8.
#pragma once

#include <string>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/text.h"

namespace kelvaroctl {

// "cannot ATTEMPT NAME: reason", with the reason that the last file operation left in errno.
Failure FileFailure(const std::string& attempt, const std::string& name);

// Throws a usage failure when the file cannot be read or is larger than maxSize bytes.
Bytes ReadWholeFile(const std::string& name, size_t maxSize);

enum class Readers { Everyone, OwnerOnly };

// A file for a result that costs an operation of the vault: opened first, so that one that cannot be written is found
// before the vault is asked. What it held stays until Write; a new file goes if there is no Write.
class OutputFile {
  public:
    // An empty name is no file. input: the command's input, which must be another file; or "". Throws a usage failure
    // when the file cannot be written.
    OutputFile(const std::string& name, const std::string& input, Readers readers = Readers::Everyone);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Replaces the content. Throws likewise.
    void Write(const Bytes& content);

  private:
    std::string name_;
    bool isNew_ = false;
};

}  // namespace kelvaroctl
