// WinHTTP's functions without a network. All handles refer to the same exchange, which the program answers.
#pragma once

#include <string_view>

#include "platform/platform.h"

// The steps of an exchange that can fail.
enum class ExchangeStep { None, Session, Connection, Request, Connect, Send, Receive, Head, Body };

struct MemoryAnswer {
    DWORD status = 200;
    std::basic_string_view<WCHAR> head;  // zero-terminated
    std::string_view body;
    size_t piece = SIZE_MAX;  // how much one call reads at most
};

// The program defines both. The first is called when a session begins, the second for each request. The answer's
// pointers must stay valid until the next session.
ExchangeStep FailingStep();
MemoryAnswer AnswerTo(LPCWSTR path);
