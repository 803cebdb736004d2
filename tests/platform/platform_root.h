// A root of its own for a test: an empty directory that KELVARO_ROOT names, removed at the end.
#pragma once

#include <functional>
#include <string>

#include "platform/linux/text.h"
#include "platform/platform.h"

class PlatformRoot {
  public:
    PlatformRoot();
    ~PlatformRoot();
    PlatformRoot(const PlatformRoot&) = delete;
    PlatformRoot& operator=(const PlatformRoot&) = delete;

    const std::string& path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }
    std::string UserFile(const std::string& name) const { return path_ + "/user/" + name; }
    std::u16string WideFile(const std::string& name) const { return ToUtf16(File(name)); }

  private:
    std::string path_;
};

// Whole files; directories in front are made. ReadFileText gives "" for a missing file.
void WriteFileText(const std::string& path, const std::string& text);
std::string ReadFileText(const std::string& path);
unsigned ModeOf(const std::string& path);  // permission bits, 0 when there is no such file

// The last error of a call that failed; 0 for one that didn't.
inline DWORD ErrorOf(bool done)
{
    return done ? 0 : GetLastError();
}

// Runs `work` on that many threads at once; each gets its number, from 0.
void OnThreads(int count, const std::function<void(int)>& work);
// The same, and at once with them in a child process, which gets the number `count` and must end well.
void OnThreadsAndInAChild(int count, const std::function<void(int)>& work);
