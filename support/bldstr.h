// The counted, growing wide string in which all text is built.
#pragma once

#include <memory>
#include <string_view>

#include "platform/platform.h"

// After every operation cStr[length] is 0 and 2 * (length + 1) does not exceed capacity. A record whose cStr could not
// be allocated has cStr NULL and capacity 0, and every append to it is refused.
struct BldStr {
    DWORD capacity;  // bytes allocated for cStr, terminator included
    DWORD length;    // characters, terminator excluded
    WCHAR* cStr;     // zero-terminated text, owned (calloc, realloc, free)
    DWORD secret;    // non-zero: a text that is outgrown or freed is wiped first
};

// The caller owns what is returned and frees it with BldStrFree. All but BldStrNew log their failures.
BldStr* BldStrNew(DWORD chars);                   // empty, with room for `chars` characters; NULL: no memory
BldStr* BldStrNewStr(const WCHAR* text);          // a copy; NULL: no memory or a NULL text
BldStr* BldStrNewStrFromAscii(const char* text);  // a copy of a byte text in the default code page; NULL likewise
int BldStrCat(BldStr* str, const WCHAR* add);     // 1 with the text appended, 0 with the string unchanged
int BldStrCatView(BldStr* str, std::basic_string_view<WCHAR> add);  // the same; `add` is no part of the string
int BldStrReplace(BldStr* str, const WCHAR* text);  // 1 with the text replaced, 0 with the string unchanged
void BldStrRemove(BldStr* str, WCHAR ch);           // drops every occurrence, in place
void BldStrFree(BldStr* str);                       // releases text and record; NULL does nothing

// Marks a string as one that holds a secret or a token, and returns it. NULL does nothing. A SecretStrPtr marks what it
// owns (support/guards.h).
BldStr* BldStrMarkSecret(BldStr* str);

// BldStrFree of a string that is secret, marked or not. NULL does nothing.
void BldStrWipeFree(BldStr* str);

struct BldStrFreeCaller {
    void operator()(BldStr* str) const { BldStrFree(str); }
};
using BldStrPtr = std::unique_ptr<BldStr, BldStrFreeCaller>;

// A string that holds a secret or a token. What it owns is marked as secret, and stays so after release(): the string
// then wipes each text that it outgrows, and its last one when it is freed.
class SecretStrPtr : public BldStrPtr {
  public:
    SecretStrPtr() = default;
    SecretStrPtr(std::nullptr_t) {}
    explicit SecretStrPtr(BldStr* str) : BldStrPtr(BldStrMarkSecret(str)) {}

    void reset(BldStr* str = nullptr) { BldStrPtr::reset(BldStrMarkSecret(str)); }
};
