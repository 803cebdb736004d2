// A transaction over the values of one registry key: writes through its key take effect together at the commit, and
// only if no one else has changed the key's values since it was opened.
#pragma once

#include <string>

#include "platform/linux/handles.h"
#include "platform/linux/registry_hive.h"

class Transaction : public KernelObject {
  public:
    static constexpr Kind kKind = Kind::transaction;

    Transaction() : KernelObject(kKind) {}

    // Adds the key. ERROR_FILE_NOT_FOUND: no such key; ERROR_NOT_SUPPORTED: a second key.
    LONG Enter(HiveId hive, const std::u16string& path);

    // The key as seen through its handle; NULL after the commit.
    RegistryKey* key() { return ended_ ? nullptr : &after_; }

    // ERROR_TRANSACTION_ALREADY_ABORTED, and nothing written, if the key's values have changed meanwhile.
    LONG Commit();

  private:
    bool entered_ = false;
    bool ended_ = false;
    HiveId hive_ = HiveId::machine;
    RegistryKey before_;
    RegistryKey after_;
};
