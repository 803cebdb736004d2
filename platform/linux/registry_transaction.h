// A transaction over the values of one registry key in each hive: writes through its keys take effect together at the
// commit, and only if no one else has changed the keys' values since they were opened. If the second of two files can't
// be replaced, the first is put back. A process that is killed in between, or can't put it back, has changed one.
#pragma once

#include <map>
#include <string>

#include "platform/linux/handles.h"
#include "platform/linux/registry_hive.h"

class Transaction : public KernelObject {
  public:
    static constexpr Kind kKind = Kind::transaction;

    Transaction() : KernelObject(kKind) {}

    // Adds the key. ERROR_FILE_NOT_FOUND: no such key; ERROR_NOT_SUPPORTED: a second key of the hive.
    LONG Enter(HiveId hive, const std::u16string& path);

    // The hive's key as seen through its handle; NULL after the commit.
    RegistryKey* key(HiveId hive) { return ended_ ? nullptr : &keys_[hive].after; }

    // ERROR_TRANSACTION_ALREADY_ABORTED, and nothing written, if a key's values have changed meanwhile.
    LONG Commit();

  private:
    struct EnteredKey {
        RegistryKey before;
        RegistryKey after;
    };

    bool ended_ = false;
    std::map<HiveId, EnteredKey> keys_;
};
