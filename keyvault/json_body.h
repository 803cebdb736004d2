// The JSON text of a request, built by concatenation.
#pragma once

#include "support/bldstr.h"
#include "support/guards.h"

// If an append fails, no partial request is sent: text() and Bytes() return NULL from then on. Every body counts as
// secret, since that of an encryption has the plain text.
class JsonBody {
  public:
    explicit JsonBody(DWORD chars);  // the initial room in characters; it grows as needed

    JsonBody& Text(const WCHAR* fragment);  // unchanged; NULL counts as a failed append
    JsonBody& Quoted(const WCHAR* value);   // in quotes, with the escapes that JSON needs
    JsonBody& Number(LONG value);           // decimal

    const WCHAR* text() const;     // the text so far; NULL: no memory
    SecretBytesPtr Bytes() const;  // the same as sent to the vault; NULL: no memory

  private:
    SecretStrPtr text_;
    bool isWhole_;
};
