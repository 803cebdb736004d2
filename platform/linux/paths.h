// Where the Linux platform keeps its files, and how it maps Windows file names.
// The environment is read on each call. All paths are UTF-8, directories without a slash at the end.
#pragma once

#include <string>

#include "platform/linux/win_types.h"

// $KELVARO_ROOT, or /var/lib/kelvaro.
std::string RootDirectory();

// $KELVARO_USER_ROOT, or ROOT/user when $KELVARO_ROOT is set, or $HOME/.kelvaro.
std::string UserDirectory();

// ROOT/drive_c
std::string DriveDirectory();

// Maps a Windows file name: backslashes are separators, "C:" is DriveDirectory(), and a path that begins
// with a separator is used as it is. Empty when the name is NULL, empty or on another drive.
std::string NativePath(LPCWSTR name);

// Whether NativePath's result is in DriveDirectory().
bool IsOnDrive(LPCWSTR name);
