// The JSON text of a request, built by concatenation.
#pragma once

#include "support/guards.h"

// Once a piece finds no memory there is no request: neither text() nor Bytes() gives a part of one. Every body counts
// as secret, since that of an encryption has the plain text.
class JsonBody {
  public:
    explicit JsonBody(DWORD chars);  // room for so many characters; it grows beyond

    JsonBody& Text(const WCHAR* fragment);  // as it is; NULL stands for a text that found no memory
    JsonBody& Value(const WCHAR* value);    // with the escapes that JSON needs, without the quotes around it
    JsonBody& Number(LONG value);           // decimal

    const WCHAR* text() const;     // what there is so far; NULL: no memory
    SecretBytesPtr Bytes() const;  // the same as it goes over the wire; NULL: no memory

  private:
    SecretStrPtr text_;
    bool isWhole_;
};
