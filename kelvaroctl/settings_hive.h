// The settings key of one hive. Every function throws a configuration failure that names the place when the platform
// refuses.
#pragma once

#include <optional>
#include <string>

#include "kelvaroctl/setting_table.h"
#include "kelvaroctl/text.h"
#include "platform/product.h"

namespace kelvaroctl {

struct RawValue {
    DWORD type = REG_NONE;
    Bytes bytes;
};

class SettingsHive {
  public:
    explicit SettingsHive(HKEY hive) : hive_(hive) {}

    HKEY handle() const { return hive_; }
    bool isMachine() const { return hive_ == HKEY_LOCAL_MACHINE; }
    std::string name() const;   // HKEY_LOCAL_MACHINE
    std::string scope() const;  // "machine" or "user"

    // Whether the key is there; throws when the hive is damaged.
    bool Exists() const;
    std::optional<RawValue> Read(const std::string& valueName) const;
    void Create() const;                                                    // if it isn't there
    void Write(const std::string& valueName, const RawValue& value) const;  // creates the key
    bool Remove(const std::string& valueName) const;                        // false when there was no such value

  private:
    HKEY hive_;
};

// What a setting is worth, as the module takes it.
struct SettingState {
    bool stored = false;   // there is a value of that name
    std::string ignored;   // why the module does not take it; empty when it does
    bool inForce = false;  // stored, not ignored and not empty
    WideText text;         // what counts: the value's, or the fallback
    DWORD number = 0;      // likewise
};
SettingState ReadSetting(const SettingsHive& hive, const Setting& setting);

// The value's text up to its terminator.
WideText TextOf(const RawValue& value);
DWORD NumberOf(const RawValue& value);
RawValue TextValue(const WideText& text);
RawValue NumberValue(DWORD number);
std::string TypeName(DWORD type);  // REG_SZ

}  // namespace kelvaroctl
