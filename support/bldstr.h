// The growable wide string that all text is built with.
#pragma once

#include <string_view>

#include "platform/owner.h"
#include "platform/platform.h"

// After every operation cStr[length] is 0 and 2 * (length + 1) is at most capacity. If cStr couldn't be allocated, it
// is NULL, capacity is 0, and every append fails.
struct BldStr {
    DWORD capacity;  // bytes allocated for cStr, terminator included
    DWORD length;    // characters, terminator excluded
    WCHAR* cStr;     // zero-terminated text, owned (calloc, realloc, free)
    DWORD secret;    // non-zero: the text is wiped before it is moved or freed
    LONG shares;     // owners in addition to the first; while there are any, the string doesn't change
};

// The caller frees strings with BldStrFree. All but BldStrNew log their failures.
BldStr* BldStrNew(DWORD chars);                   // empty, with room for `chars` characters; NULL: no memory
BldStr* BldStrNewStr(const WCHAR* text);          // a copy; NULL: no memory or a NULL text
BldStr* BldStrNewStrFromAscii(const char* text);  // a copy of a byte text in the default code page; NULL likewise
int BldStrCat(BldStr* str, const WCHAR* add);     // 1 with the text appended, 0 with the string unchanged
int BldStrCatView(BldStr* str, std::basic_string_view<WCHAR> add);  // the same; `add` must not be part of the string
int BldStrReplace(BldStr* str, const WCHAR* text);  // 1 with the text replaced, 0 with the string unchanged
void BldStrRemove(BldStr* str, WCHAR ch);           // drops every occurrence, in place
void BldStrFree(BldStr* str);                       // releases text and record; NULL does nothing

// Adds an owner of the string; each frees it, and the last one releases it. Any thread may free its share. NULL returns
// NULL.
BldStr* BldStrShare(BldStr* str);

// Marks a string that holds a secret or a token, and returns it. NULL does nothing. A SecretStrPtr marks what it owns.
BldStr* BldStrMarkSecret(BldStr* str);

// Wipes and frees a string, whether it is marked or not. NULL does nothing.
void BldStrWipeFree(BldStr* str);

using BldStrPtr = Owner<BldStr, BldStrFree>;

// A string that holds a secret or a token. What it owns is marked as secret and stays marked after release(), so the
// text is always wiped before it is moved or freed.
class SecretStrPtr : public BldStrPtr {
  public:
    SecretStrPtr() = default;
    SecretStrPtr(std::nullptr_t) {}
    explicit SecretStrPtr(BldStr* str) : BldStrPtr(BldStrMarkSecret(str)) {}

    void reset(BldStr* str = nullptr) { BldStrPtr::reset(BldStrMarkSecret(str)); }
};
