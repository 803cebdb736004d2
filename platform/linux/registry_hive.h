// The two hives on disk: reads see every change of the file, and changes replace the whole file.
#pragma once

#include <functional>
#include <string>

#include "platform/linux/file_store.h"
#include "platform/linux/registry_file.h"

enum class HiveId { machine, user };

std::string HiveFile(HiveId id);

// The value with a plaintext secret, until the provider protects it.
constexpr char16_t kClearSecret[] = u"ClientSecret";

enum class HiveContent {
    kept,      // may be cached; the cache has no data for kClearSecret
    complete,  // read from the file
};

// Runs `visit` on the current hive, an empty one if there is no file; one thread of the process at a time.
// ERROR_BADDB if the file is damaged or not a regular file, else the result of `visit`.
LONG ReadHive(HiveId id, HiveContent content, const std::function<LONG(const RegistryHive&)>& visit);

// Changes a hive. *changed is false on entry.
using HiveChange = std::function<LONG(RegistryHive*, bool* changed)>;

// Runs `change` on the hive and writes the hive if it returns ERROR_SUCCESS and sets *changed. Runs it first without
// the writers' lock, to see whether it changes anything, and then again under the lock, each time on the hive read
// from the file. ERROR_BADDB: the file is damaged, and left alone. ERROR_LOCK_VIOLATION: another writer holds the
// lock too long. ERROR_FILE_TOO_LARGE: the hive would no longer be readable.
LONG ChangeHive(HiveId id, const HiveChange& change);

// A hive, locked until the object is gone, that is changed in two steps, so that two hives can change together.
class HiveRewrite {
  public:
    // Runs `change` on the hive and prepares the new file if it returns ERROR_SUCCESS and sets *changed. The errors of
    // ChangeHive.
    LONG Prepare(HiveId id, const HiveChange& change);
    LONG Publish();
    // Puts back the file as Prepare found it, as far as that works. For Publish, whether it succeeded or not.
    void Undo();

  private:
    StoreLock lock_;
    Replacement file_;
    std::string path_;
    SecretString before_;
    bool changed_ = false;
};
