// The settings of the provider: names, types, limits, and what a value must look like to do what it seems to say.
#pragma once

#include <optional>
#include <string>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

enum class SettingKind {
    Text,
    Number,
    Secret,           // text that is never shown
    ProtectedSecret,  // the module's own form of the secret, never shown and not set by hand
    StateNumber,      // the module's own notes
    StateText,
};

// When a host reads it.
enum class ReadWhen { ProviderOpen, ModuleLoad, LogLine };

struct Setting {
    const char* name;
    SettingKind kind;
    DWORD limit;       // text: bytes with terminator, 0 for none
    DWORD maximum;     // number
    bool machineOnly;  // read from the machine hive alone
    ReadWhen readWhen;
    const char* fallback;  // what counts while it is not set
    const char* summary;
};

// All of them, in the order in which they are shown; ended by a row without a name.
extern const Setting kSettings[];

// Letter case does not count. NULL when there is no such setting.
const Setting* FindSetting(std::string_view name);

bool IsText(const Setting& setting);
bool IsState(const Setting& setting);  // the module's own values, which `config set` leaves alone

// What is wrong with a value, as a sentence; empty when it will do.
std::string TextProblem(const Setting& setting, const WideText& value);
std::string NumberProblem(const Setting& setting, DWORD value);
// What will work but hardly as meant; empty when there is nothing to say.
std::string TextWarning(const Setting& setting, const WideText& value);

// Decimal, or hexadecimal behind 0x.
std::optional<DWORD> ParseNumber(const std::string& text);

// What a number stands for, "client credentials"; empty when it says all itself.
std::string NumberMeaning(const Setting& setting, DWORD value);

}  // namespace kelvaroctl
