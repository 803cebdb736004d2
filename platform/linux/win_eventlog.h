// The event log for the Linux build: ROOT/eventlog/<source>.jsonl, one JSON object per record with `time`, `type`,
// `text`.
#pragma once

#include "platform/linux/win_constants.h"

// server: NULL, the local computer. Handles of one source are equal and need not be released.
// NULL on failure.
HANDLE WINAPI RegisterEventSourceW(LPCWSTR server, LPCWSTR source);

// Appends a record with a single write; its text is the first string. Category, event id, user and data are dropped.
BOOL WINAPI ReportEventW(HANDLE eventLog, WORD type, WORD category, DWORD eventId, PSID user, WORD stringCount,
                         DWORD rawDataSize, LPCWSTR* strings, LPVOID rawData);
