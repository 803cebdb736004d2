// UUIDs of the RPC runtime for the Linux build.
#pragma once

#include "platform/linux/win_constants.h"

using RPC_STATUS = LONG;
using RPC_WSTR = WCHAR*;

// A random (version 4) UUID. RPC_S_UUID_NO_ADDRESS if there is no randomness.
RPC_STATUS WINAPI UuidCreate(UUID* uuid);
// A new text of 36 lower-case characters. Free it with RpcStringFreeW.
RPC_STATUS WINAPI UuidToStringW(UUID* uuid, RPC_WSTR* text);
// Frees *text and sets it to NULL.
RPC_STATUS WINAPI RpcStringFreeW(RPC_WSTR* text);
