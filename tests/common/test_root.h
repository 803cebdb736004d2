// A fresh machine for a test: an empty registry key, an empty log directory, empty stores. Settings and log are written
// and read through the platform's functions, so that the same test runs on Windows.
#pragma once

#include <vector>

#include "platform/owner.h"
#include "tests/common/wide_text.h"

class TestRoot : private NonCopyable {
  public:
    TestRoot();   // makes the root, the settings key in both hives and a log directory; KELVARO_ROOT names the root on
                  // Linux
    ~TestRoot();  // removes all of it
    void SetText(HKEY hive, const std::string& name, const std::string& value, DWORD type = REG_SZ);
    void SetNumber(HKEY hive, const std::string& name, DWORD value);
    void SetBytes(HKEY hive, const std::string& name, DWORD type, const std::vector<BYTE>& bytes);
    std::string GetText(HKEY hive, const std::string& name) const;  // "" when missing or of another type
    bool Has(HKEY hive, const std::string& name) const;
    void RemoveKey(HKEY hive);  // the settings key itself

    // Lines of the log files in the log directory, without "Kelvaro: " and the stamp: "KVCDelete 8".
    std::vector<std::string> LogLines() const;
    void ClearLog();
    // Whether a line with exactly this text and level has been written, e.g. ("KelvaroOpenKey Error Error 0x80090011",
    // 1).
    bool Logged(const std::string& text, int level) const;
    std::string WholeLog() const;  // all files as they are

    const std::string& directory() const { return directory_; }  // the root, a file name of the platform
    std::string logDirectory() const;

  private:
    std::string directory_;
};
