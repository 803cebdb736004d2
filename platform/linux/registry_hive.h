// The two hives on disk: reads that follow every change of the file, and changes that replace it as a whole.
#pragma once

#include <functional>
#include <string>

#include "platform/linux/registry_file.h"

enum class HiveId { machine, user };

std::string HiveFile(HiveId id);

// Runs `visit` on the hive as it stands, an empty one when there is no file, while no other thread of this process is
// in one. ERROR_BADDB when the file is damaged; else the result of `visit`.
LONG ReadHive(HiveId id, const std::function<LONG(const RegistryHive&)>& visit);

// Runs `change` on the hive under the lock of all writers, and writes it when that says ERROR_SUCCESS and has set
// *changed. A damaged file is left alone: ERROR_BADDB.
LONG ChangeHive(HiveId id, const std::function<LONG(RegistryHive*, bool* changed)>& change);
