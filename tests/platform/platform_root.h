// A temporary directory that KELVARO_ROOT names, and helpers: files, test data, two-call reads, threads.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/linux/text.h"
#include "platform/owner.h"
#include "platform/platform.h"
#include "tests/common/threads.h"

class PlatformRoot : private NonCopyable {
  public:
    PlatformRoot();
    ~PlatformRoot();

    const std::string& path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

// Whole files. Writing makes the directories; reading gives "" for a missing file.
void WriteFileText(const std::string& path, const std::string& text);
std::string ReadFileText(const std::string& path);
unsigned ModeOf(const std::string& path);  // permission bits, 0 if there is no such file
// A file of tests/data/x509.
std::string X509File(const std::string& name);
// web01.der with this last character of the common name. The signature no longer fits.
std::string TestCertificate(char last = '1');

constexpr DWORD kEncodings = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// The last error of a call that failed; 0 for one that didn't.
inline DWORD ErrorOf(bool done)
{
    return done ? 0 : GetLastError();
}
std::string ErrorText();  // of the last error, "error 8009000B"

inline BYTE* BytesOf(const std::string& bytes)
{
    return reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()));
}
inline DWORD SizeOf(const std::string& bytes)
{
    return static_cast<DWORD>(bytes.size());
}
std::string HexText(const BYTE* bytes, size_t size);  // upper-case digits

// Reads what `call`, BOOL(T*, DWORD*), writes: first the size, then into a buffer that is one element short, which the
// call must leave alone and refuse with `tooSmall` and the size, then all of it. Returns the error of the first call.
template <typename T, typename Call>
DWORD ReadInTwoCalls(std::basic_string<T>* data, LONG tooSmall, const Call& call)
{
    DWORD needed = 0;
    if (!call(nullptr, &needed) && GetLastError() != static_cast<DWORD>(tooSmall))
        return GetLastError();
    const std::basic_string<T> untouched(needed, T{'?'});
    *data = untouched;
    DWORD size = needed - 1;
    if (needed != 0) {
        EXPECT_EQ(ErrorOf(call(data->data(), &size)), static_cast<DWORD>(tooSmall));
        EXPECT_EQ(size, needed);
        EXPECT_TRUE(*data == untouched);
    }
    size = needed;
    EXPECT_TRUE(call(data->data(), &size));
    EXPECT_TRUE(size == needed || (size + 1 == needed && data->back() == 0)) << "the terminator may not be counted";
    data->resize(size);
    return 0;
}

// OnThreads, and at the same time in a child process, which gets the number `count` and must exit with 0.
void OnThreadsAndInAChild(int count, const std::function<void(int)>& work);
