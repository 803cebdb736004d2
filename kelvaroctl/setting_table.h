// The provider's settings: names, types, limits and checks of their values.
#pragma once

#include <optional>
#include <string>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

enum class SettingKind {
    Text,
    Number,
    Secret,           // text that is never shown
    ProtectedSecret,  // the module's encrypted form, never shown or set by hand
    StateNumber,      // the module's own state
    StateText,
};

// When the module reads it.
enum class ReadWhen { ProviderOpen, ModuleLoad, LogLine };

struct Setting {
    const char* name;
    SettingKind kind;
    DWORD limit;       // text: bytes with terminator, 0 for none
    DWORD maximum;     // number
    bool machineOnly;  // only read from the machine hive
    ReadWhen readWhen;
    const char* fallback;  // the default
    const char* summary;
};

// In the order in which they are shown; the last row has no name.
extern const Setting kSettings[];

// Ignores letter case. NULL if there is no such setting.
const Setting* FindSetting(std::string_view name);

std::vector<std::string> SettingNames();  // that can be set by hand

bool IsText(const Setting& setting);
bool IsState(const Setting& setting);  // the module's own values, which `config set` leaves alone

// Converts a pasted value to the form that the module expects: a vault's URL or host name becomes its short name.
std::string ShortForm(const Setting& setting, const std::string& value);

// What is wrong with a value; empty if it is good.
std::string TextProblem(const Setting& setting, WideView value);
std::string NumberProblem(const Setting& setting, DWORD value);
// Why a valid value probably won't work; empty if it will.
std::string TextWarning(const Setting& setting, WideView value);

// Decimal, or hexadecimal after 0x.
std::optional<DWORD> ParseNumber(const std::string& text);

// What a number means, "client credentials"; empty if it needs no explanation.
std::string NumberMeaning(const Setting& setting, DWORD value);

}  // namespace kelvaroctl
