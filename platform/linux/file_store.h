// Files that outlive the process: whole-file reads and rewrites. A reader in another process never sees half a
// file, and a crash never loses the old content. Directories get mode 0700 and files 0600. Results of
// type LONG are error codes.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "platform/owner.h"
#include "platform/secret_memory.h"

// A file descriptor with one owner.
class FileDescriptor : private NonCopyable {
  public:
    explicit FileDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
    ~FileDescriptor() { Reset(-1); }

    bool IsOpen() const { return descriptor_ >= 0; }
    int Get() const { return descriptor_; }
    int Release();
    void Reset(int descriptor);

  private:
    int descriptor_;
};

// "." for a name without a directory.
std::string DirectoryOf(const std::string& path);

// Creates the directory and its missing parents.
LONG MakeDirectories(const std::string& directory);

// Works as open, for regular files only: a FIFO would block its reader or writer, and a symbolic link would let another
// account choose the file. -1 with errno set: ELOOP for a link, EISDIR for a directory, ENXIO for anything else.
// *status, if not NULL, is the open file's.
int OpenRegularFile(const std::string& path, int flags, mode_t mode, struct stat* status = nullptr);

// ERROR_FILE_NOT_FOUND when there is none; ERROR_BAD_FILE_TYPE when it isn't a regular file; ERROR_FILE_TOO_LARGE over
// maxSize bytes. *status, if not NULL, is the file's as read.
LONG ReadWholeFile(const std::string& path, size_t maxSize, SecretString* content, struct stat* status = nullptr);

// Replaces a file in two steps, so that several can be prepared before the first is published. The new file keeps the
// old one's group and what that group may do. The caller holds a StoreLock on the path until the object is gone.
class Replacement : private NonCopyable {
  public:
    ~Replacement();

    LONG Prepare(const std::string& path, std::string_view content);  // writes a temporary file beside it and syncs it
    LONG Publish();                                                   // renames it

  private:
    std::string path_;  // empty: nothing is prepared
};

// Both steps.
LONG ReplaceFile(const std::string& path, std::string_view content);

// Appends with a single write, so that lines of several processes don't interleave.
LONG AppendToFile(const std::string& path, std::string_view line);

// Excludes all other writers of `path`, in this process and in others, until destroyed. Creates the directory.
// ERROR_LOCK_VIOLATION if another writer, such as a stopped process, holds the lock for all of patienceMs.
class StoreLock {
  public:
    ~StoreLock();

    static constexpr DWORD kPatienceMs = 10000;
    LONG Acquire(const std::string& path, DWORD patienceMs = kPatienceMs);

  private:
    FileDescriptor file_;
};
