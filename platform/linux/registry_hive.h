// The two hives on disk: reads that follow every change of the file, and changes that replace it as a whole.
#pragma once

#include <functional>
#include <string>

#include "platform/linux/registry_file.h"

enum class HiveId { machine, user };

std::string HiveFile(HiveId id);

// The value that holds a secret in clear until the provider seals it.
constexpr char16_t kClearSecret[] = u"ClientSecret";

enum class HiveContent {
    kept,      // may come from memory, where kClearSecret has no data
    complete,  // is read from the file
};

// Runs `visit` on the hive as it stands, an empty one when there is no file, while no other thread of this process is
// in one. ERROR_BADDB when the file is damaged or no regular file; else the result of `visit`.
LONG ReadHive(HiveId id, HiveContent content, const std::function<LONG(const RegistryHive&)>& visit);

// Runs `change` on the hive and writes it when that says ERROR_SUCCESS and has set *changed. Runs it without the lock
// of all writers first, to see whether it would change anything, and then once more under the lock, each time on the
// hive as it is read from the file. A damaged file is left alone: ERROR_BADDB. ERROR_LOCK_VIOLATION when another writer
// holds the lock too long, ERROR_FILE_TOO_LARGE when the hive would no longer be readable.
LONG ChangeHive(HiveId id, const std::function<LONG(RegistryHive*, bool* changed)>& change);
