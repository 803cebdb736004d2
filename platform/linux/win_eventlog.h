// The event log for the Linux build: ROOT/eventlog/<source>.jsonl, one JSON object a record with `time`, `type`,
// `text`.
#pragma once

#include "platform/linux/win_types.h"

constexpr WORD EVENTLOG_SUCCESS = 0x0000;
constexpr WORD EVENTLOG_ERROR_TYPE = 0x0001;
constexpr WORD EVENTLOG_WARNING_TYPE = 0x0002;

// server: NULL, the local computer. Handles of one source are equal, cost nothing and need not be given back.
// NULL on failure.
HANDLE WINAPI RegisterEventSourceW(LPCWSTR server, LPCWSTR source);

// Appends one record with one write; its text is the first string. Category, event id, user and raw data are not kept.
BOOL WINAPI ReportEventW(HANDLE eventLog, WORD type, WORD category, DWORD eventId, PSID user, WORD stringCount,
                         DWORD rawDataSize, LPCWSTR* strings, LPVOID rawData);
