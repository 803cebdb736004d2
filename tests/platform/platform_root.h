// A root of its own for a test: an empty directory that KELVARO_ROOT names, removed at the end.
#pragma once

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
