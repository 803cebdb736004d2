// The JSON text of a request, built by concatenation.
#pragma once

#include "support/guards.h"

// A piece that finds no memory spoils the text for good, so that no half request goes out.
class JsonBody {
  public:
    explicit JsonBody(DWORD chars);  // room for so many characters; it grows beyond

    JsonBody& Text(const WCHAR* fragment);  // as it is
    JsonBody& Value(const WCHAR* value);    // with the escapes that JSON needs, without the quotes around it
    JsonBody& Number(LONG value);           // decimal

    BldStrPtr Take();  // NULL: no memory

  private:
    BldStrPtr text_;
    bool whole_;
};
