// The secret file that an Azure Arc identity service names in its challenge. A caller who can read it gets a token.
#pragma once

#include "platform/platform.h"

// Room for the longest path and the longest secret, terminator included.
constexpr size_t kArcPathChars = 260;
constexpr size_t kArcSecretChars = 2000;

// Reads the file into `secret`, terminated. The path comes from whoever listens on the service's port, so only the
// absolute path of a regular file on this machine is opened: a share would make the host authenticate to another
// machine, and a pipe or a device could block it. False for any other path, or if the file can't be read or is too
// long.
bool ReadArcSecret(const WCHAR* path, char (&secret)[kArcSecretChars]);
