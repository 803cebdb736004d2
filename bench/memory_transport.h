// WinHTTP's functions without a network. All handles stand for one exchange, which the program itself answers.
#pragma once

#include <string_view>

#include "platform/platform.h"

// The steps of an exchange that can fail.
enum class ExchangeStep { None, Session, Connection, Request, Connect, Send, Receive, Head, Body };

struct MemoryAnswer {
    DWORD status = 200;
    std::basic_string_view<WCHAR> head;  // a zero follows it
    std::string_view body;
    size_t piece = SIZE_MAX;  // the most that one call reads
};

// The program defines both. The first is called when a session begins, the second for each request. What the answer
// points to must stay valid until the next session.
ExchangeStep FailingStep();
MemoryAnswer AnswerTo(LPCWSTR path);
