// A transaction over the values of one registry key: what is written through its key takes effect as a whole at the
// commit, and only if nobody else has changed the key's values since it was opened.
#pragma once

#include <string>

#include "platform/linux/handles.h"
#include "platform/linux/registry_hive.h"

class Transaction : public KernelObject {
  public:
    static constexpr Kind kKind = Kind::transaction;

    Transaction() : KernelObject(kKind) {}

    // Takes the key in as it stands. ERROR_FILE_NOT_FOUND when there is no such key, ERROR_NOT_SUPPORTED for a second.
    LONG Enter(HiveId hive, const std::u16string& path);

    // The key as its handle sees it; NULL after the commit.
    RegistryKey* key() { return ended_ ? nullptr : &after_; }

    // ERROR_TRANSACTION_ALREADY_ABORTED, with nothing written, when the key's values have changed meanwhile.
    LONG Commit();

  private:
    bool entered_ = false;
    bool ended_ = false;
    HiveId hive_ = HiveId::machine;
    RegistryKey before_;
    RegistryKey after_;
};
