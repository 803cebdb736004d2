// The published numbers, from the table that layout_checks.cpp compares with Windows' own headers.
#pragma once

#include "platform/linux/win_types.h"

#define NUMBER(type, name, value) constexpr type name = static_cast<type>(value);
#include "platform/published/numbers.def"

// Windows declares these in headers that the system doesn't include, so nothing compares them.
constexpr LONG ERROR_TRANSACTION_NOT_ACTIVE = 6701;
constexpr LONG ERROR_TRANSACTION_ALREADY_ABORTED = 6704;
constexpr NTSTATUS STATUS_SUCCESS = 0;
constexpr NTSTATUS STATUS_UNSUCCESSFUL = static_cast<NTSTATUS>(0xC0000001);
constexpr NTSTATUS STATUS_BUFFER_TOO_SMALL = static_cast<NTSTATUS>(0xC0000023);
constexpr NTSTATUS STATUS_NOT_SUPPORTED = static_cast<NTSTATUS>(0xC00000BB);
constexpr NTSTATUS STATUS_INVALID_BUFFER_SIZE = static_cast<NTSTATUS>(0xC0000206);
constexpr NTSTATUS STATUS_NOT_FOUND = static_cast<NTSTATUS>(0xC0000225);
