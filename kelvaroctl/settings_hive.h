// The settings key of one hive. Every function throws a configuration failure that names the place if the platform
// reports an error.
#pragma once

#include <optional>
#include <string>

#include "kelvaroctl/setting_table.h"
#include "kelvaroctl/text.h"
#include "platform/product.h"
#include "platform/registry_key.h"

namespace kelvaroctl {

struct RawValue {
    DWORD type = REG_NONE;
    Bytes bytes;
};

// Throws "cannot ATTEMPT in PLACE: REASON".
[[noreturn]] void ThrowSettingsFailure(const std::string& attempt, const std::string& place, LONG error);

class SettingsHive {
  public:
    explicit SettingsHive(HKEY hive) : hive_(hive) {}

    HKEY handle() const { return hive_; }
    bool isMachine() const { return hive_ == HKEY_LOCAL_MACHINE; }
    std::string name() const;   // HKEY_LOCAL_MACHINE
    std::string scope() const;  // "machine" or "user"

    bool Exists() const;           // the key
    void RequireReadable() const;  // throws if the hive is damaged or access is denied
    std::optional<RawValue> Read(const std::string& valueName) const;
    void Create() const;                                                    // unless it exists
    void Write(const std::string& valueName, const RawValue& value) const;  // creates the key
    bool Remove(const std::string& valueName) const;                        // false if there was no such value

    // Creates the key. From here on Write and Remove take effect when the transaction is committed. False if the
    // machine has no registry transactions. attempt: "write KeyVault", for the failure's message.
    bool Enter(RegistryTransaction* transaction, const std::string& attempt);

    [[noreturn]] void ThrowFailure(const std::string& attempt, LONG error) const;

  private:
    HKEY hive_;
    RegistryKeyHandle key_;  // in the transaction, if any
};

// A setting as the module reads it.
struct SettingState {
    std::string ignored;   // why the module ignores it; empty if it doesn't
    bool inForce = false;  // stored, not ignored and not empty
    SecretText text;       // the effective value: the stored one or the default
    DWORD number = 0;      // likewise
};
SettingState ReadSetting(const SettingsHive& hive, const Setting& setting);
SettingState ReadSetting(const SettingsHive& hive, const char* name);

RawValue TextValue(WideView text);
RawValue NumberValue(DWORD number);
std::string TypeName(DWORD type);  // REG_SZ

}  // namespace kelvaroctl
