// What all commands share: the command line, answers and access to the provider.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kelvaroctl/command.h"
#include "kelvaroctl/files.h"
#include "kelvaroctl/json.h"
#include "kelvaroctl/module_host.h"
#include "kelvaroctl/settings_hive.h"

namespace kelvaroctl {

// A command's result, as JSON and as text.
struct Answer {
    Json object = Json::object();
    std::string text = {};
    ExitCode exit = ExitCode::Ok;
};

// Writes the content to the command's output file, if one is named, so that the answer's text doesn't have it. what:
// "public key".
void PutInFile(OutputFile* file, const std::string& what, const Bytes& content, Answer* answer);

struct LogLine;
class LogMark;

class Tool : public Arguments {
  public:
    SettingsHive hive() const { return SettingsHive(user ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE); }

    // Throws a configuration failure if the settings of this scope cannot be read: the module would silently run
    // without them.
    std::unique_ptr<Provider> OpenProvider() const;

    // The vault of this scope's settings, as in "contoso.vault.azure.net" or another description; how the module signs
    // in. Empty if the settings can't be read.
    std::string VaultWords() const;
    std::string SignInWords() const;

    // Prints to standard error, or adds to the JSON answer.
    void Warn(const std::string& text);
    const std::vector<std::string>& warnings() const { return warnings_; }

    // The log lines since OpenProvider; empty if it wasn't called.
    std::vector<LogLine> LogLines() const;
    bool openedProvider() const { return mark_ != nullptr; }

  private:
    std::vector<std::string> warnings_;
    mutable std::shared_ptr<const LogMark> mark_;  // where the log ended before OpenProvider
};

}  // namespace kelvaroctl
