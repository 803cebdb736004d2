#include "support/bldstr.h"

#include <stdlib.h>
#include <string.h>

#include "support/fail.h"
#include "support/guards.h"
#include "support/text.h"

namespace {

// Sizes in bytes have 32 bits; longer text fails like an allocation.
constexpr size_t kMaxChars = 0x7FFFFFF0 / sizeof(WCHAR);

DWORD BytesFor(size_t chars)
{
    return static_cast<DWORD>(chars * sizeof(WCHAR) + sizeof(WCHAR));
}

// Makes room for exactly `chars` characters. False: the string is unchanged.
bool Grow(BldStr* str, size_t chars)
{
    const DWORD needed = chars <= kMaxChars ? BytesFor(chars) : 0;
    void* grown = nullptr;
    if (needed)
        grown = str->secret ? WipeRealloc(str->cStr, str->capacity, needed) : realloc(str->cStr, needed);
    if (!grown)
        return Fail(false, TEXT("BldStrFree BldStrCat realloc returned NULL"));
    str->cStr = static_cast<WCHAR*>(grown);
    str->capacity = needed;
    return true;
}

}  // namespace

BldStr* BldStrNew(DWORD chars)
{
    MallocPtr<BldStr> str(static_cast<BldStr*>(calloc(1, sizeof(BldStr))));
    if (!str || chars > kMaxChars)
        return nullptr;
    str->cStr = static_cast<WCHAR*>(calloc(1, BytesFor(chars)));
    // Without a text buffer the capacity stays 0, so that every append fails.
    if (str->cStr)
        str->capacity = BytesFor(chars);
    return str.release();
}

BldStr* BldStrNewStr(const WCHAR* text)
{
    const TextView view = View(text);
    BldStrPtr str(text && view.size() <= kMaxChars ? BldStrNew(static_cast<DWORD>(view.size())) : nullptr);
    if (!str || !BldStrCatView(str.get(), view))
        return Fail(nullptr, TEXT("BldStrNewStr NULL str"));
    return str.release();
}

BldStr* BldStrNewStrFromAscii(const char* text)
{
    if (!text)
        return Fail(nullptr, TEXT("BldStrNewStrFromAscii NULL str"));
    BldStrPtr str(static_cast<BldStr*>(calloc(1, sizeof(BldStr))));
    if (!str)
        return Fail(nullptr, TEXT("BldStrNewStrFromAscii memory allocation failed"), GetLastError());
    const int size = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    if (size <= 0)
        return Fail(nullptr, TEXT("BldStrNewStrFromAscii MultiByteToWideChar 1 failed"), GetLastError());
    str->cStr = static_cast<WCHAR*>(calloc(static_cast<size_t>(size), sizeof(WCHAR)));
    if (!str->cStr)
        return Fail(nullptr, TEXT("BldStrNewStrFromAscii string memory allocation failed"), GetLastError());
    const int written = MultiByteToWideChar(CP_ACP, 0, text, -1, str->cStr, size);
    str->capacity = static_cast<DWORD>(written > 0 ? written : 0) * static_cast<DWORD>(sizeof(WCHAR));
    if (str->capacity == 0)
        return Fail(nullptr, TEXT("BldStrNewStrFromAscii MultiByteToWideChar 2 failed"), GetLastError());
    str->length = static_cast<DWORD>(View(str->cStr).size());
    return str.release();
}

int BldStrCatView(BldStr* str, TextView add)
{
    if (!str || !str->cStr) {
        LogLine(TEXT("BldStrFree BldStrCat pstr or stradd NULL"), LOG_WARNING_LEVEL);
        return 0;
    }
    const size_t length = str->length + add.size();
    if ((length > kMaxChars || BytesFor(length) > str->capacity) && !Grow(str, length))
        return 0;
    add.copy(str->cStr + str->length, add.size());
    str->cStr[length] = 0;
    str->length = static_cast<DWORD>(length);
    return 1;
}

int BldStrCat(BldStr* str, const WCHAR* add)
{
    return BldStrCatView(add ? str : nullptr, View(add));
}

int BldStrReplace(BldStr* str, const WCHAR* text)
{
    if (!str || !str->cStr || !text) {
        LogLine(TEXT("BldStrReplace NULL"), LOG_WARNING_LEVEL);
        return 0;
    }
    const TextView view(text);
    if (view.size() > str->length && !Grow(str, view.size()))
        return 0;
    // The replacement may be part of the old text.
    memmove(str->cStr, view.data(), view.size() * sizeof(WCHAR));
    str->cStr[view.size()] = 0;
    str->length = static_cast<DWORD>(view.size());
    return 1;
}

void BldStrRemove(BldStr* str, WCHAR ch)
{
    if (!str || !str->cStr) {
        LogLine(TEXT("BldStrRemove NULL"), LOG_WARNING_LEVEL);
        return;
    }
    DWORD kept = 0;
    for (DWORD i = 0; i < str->length; i++) {
        if (str->cStr[i] != ch)
            str->cStr[kept++] = str->cStr[i];
    }
    str->cStr[kept] = 0;
    str->length = kept;
}

BldStr* BldStrMarkSecret(BldStr* str)
{
    if (str)
        str->secret = 1;
    return str;
}

BldStr* BldStrShare(BldStr* str)
{
    if (str)
        InterlockedIncrement(&str->shares);
    return str;
}

void BldStrFree(BldStr* str)
{
    if (!str || InterlockedDecrement(&str->shares) >= 0)
        return;
    if (str->secret)
        Wipe(str->cStr, str->capacity);
    free(str->cStr);
    free(str);
}

void BldStrWipeFree(BldStr* str)
{
    BldStrFree(BldStrMarkSecret(str));
}
