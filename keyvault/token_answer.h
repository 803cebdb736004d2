// The answer of a sign-in service.
#pragma once

#include "support/bldstr.h"

// What a sign-in returned; members that were missing are NULL. A method that fails may still return a type.
struct Token {
    SecretStrPtr type;
    SecretStrPtr text;
};

// What was taken from an answer.
struct TokenAnswer {
    bool text;
    bool type;
    bool noMemory;  // for either; then neither is taken, since half a token would count as valid for an hour
};

// Replaces the members of `token` with "access_token" and "token_type" of an answer. Takes neither if one of them has a
// character that isn't visible ASCII: both go into a header line.
// body: zero-terminated, or NULL.
TokenAnswer TakeTokenAnswer(const char* body, Token* token);
