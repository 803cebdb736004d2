#include "keyvault/arc_secret.h"

#include <stdio.h>

#include <algorithm>

#include "support/text.h"

namespace {

bool IsSeparator(WCHAR ch)
{
    return ch == TEXT('/') || ch == TEXT('\\');
}

bool SameInPath(WCHAR a, WCHAR b)
{
    const auto lower = [](WCHAR ch) {
        return ch >= TEXT('A') && ch <= TEXT('Z') ? ch + (TEXT('a') - TEXT('A')) : int{ch};
    };
    return lower(a) == lower(b) || (IsSeparator(a) && IsSeparator(b));
}

// Two separators start the name of a share, a pipe or a device. A path that the platform resolves to a different one is
// relative, contains "..", or names a device in a folder. A drive letter may stand for a share.
bool IsLocalPath(const WCHAR* path)
{
    const TextView text = View(path);
    if (text.size() < 2 || (IsSeparator(text[0]) && IsSeparator(text[1])))
        return false;
    WCHAR full[kArcPathChars] = {};
    const DWORD length = GetFullPathNameW(path, kArcPathChars, full, nullptr);
    const WCHAR root[] = {full[0], full[1], full[2], 0};
    return length == text.size() && std::equal(text.begin(), text.end(), full, SameInPath) &&
           GetDriveTypeW(root) != DRIVE_REMOTE;
}

}  // namespace

bool ReadArcSecret(const WCHAR* path, char (&secret)[kArcSecretChars])
{
    FILE* file = IsLocalPath(path) ? _wfopen(path, TEXT("rt")) : nullptr;
    if (!file)
        return false;
    // Unbuffered: the stream would free its buffer with the secret still in it.
    setvbuf(file, nullptr, _IONBF, 0);
    const size_t size = fread(secret, 1, kArcSecretChars, file);
    const bool whole = !ferror(file) && size < kArcSecretChars;
    fclose(file);
    secret[whole ? size : 0] = 0;
    return whole;
}
