// Files that outlive the process: whole-file reads and rewrites, made so that a reader in another process never sees
// half a file and a crash loses nothing that was there before. Directories get mode 0700 and files 0600. All results
// are error codes.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "platform/linux/win_types.h"

// A file descriptor with one owner.
class FileDescriptor {
  public:
    explicit FileDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
    ~FileDescriptor() { Reset(-1); }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    bool IsOpen() const { return descriptor_ >= 0; }
    int Get() const { return descriptor_; }
    int Release();
    void Reset(int descriptor);

  private:
    int descriptor_;
};

// Makes the directory and those above it that are missing.
LONG MakeDirectories(const std::string& directory);

// ERROR_FILE_NOT_FOUND when there is none; ERROR_FILE_TOO_LARGE over maxSize bytes. *status, if given, is the file's as
// read.
LONG ReadWholeFile(const std::string& path, size_t maxSize, std::string* content, struct stat* status = nullptr);

// Writes a temporary file beside `path`, brings it to the disk and renames it. The caller holds a StoreLock on `path`.
LONG ReplaceFile(const std::string& path, std::string_view content);

// Appends with one write, so that lines of several processes do not mix.
LONG AppendToFile(const std::string& path, std::string_view line);

// Excludes all other writers of `path`, in this process and in others, until its end. The directory is made on demand.
class StoreLock {
  public:
    LONG Acquire(const std::string& path);

  private:
    FileDescriptor file_;
};
