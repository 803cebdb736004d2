#include "kelvaroctl/tool.h"

#include <iostream>

#include "kelvaroctl/module_log.h"
#include "kelvaroctl/terminal.h"
#include "kelvaroctl/wait_notice.h"

namespace kelvaroctl {

void PutInFile(OutputFile* file, const std::string& what, const Bytes& content, Answer* answer)
{
    if (file->name().empty())
        return;
    file->Write(content);
    answer->object["file"] = file->name();
    answer->text = what + " written to " + file->name() + "\n";
}

static ProviderBinding Bind(const Tool& tool)
{
    if (tool.via == "module")
        return LoadModule(tool.modulePath);
    if (!tool.modulePath.empty())
        throw UsageFailure("--module cannot be combined with --via ncrypt, which uses the registered module");
    return OpenRouter();
}

std::unique_ptr<Provider> Tool::OpenProvider() const
{
    // Only this scope's settings: an ordinary user may not be allowed to read the machine's, and doesn't need them.
    hive().RequireReadable();
    if (!mark_)
        mark_ = std::make_shared<const LogMark>();
    std::unique_ptr<WaitNotice> notice;
    if (ErrorOutputIsTerminal())
        notice = std::make_unique<WaitNotice>(&std::cerr, WaitLines(VaultWords()));
    return std::make_unique<Provider>(Bind(*this), !user, std::move(notice));
}

std::string Tool::VaultWords() const
{
    const auto setting = IfPossible([&] { return ReadSetting(hive(), "KeyVault"); });
    const std::string vault = setting ? ToNarrow(setting->text) : "";
    if (!setting || vault == "%G")
        return setting ? "the vault that is named after the identity" : "";
    return vault + ".vault.azure.net" + (vault.find("%D") == std::string::npos ? "" : " (%D: the machine's DNS name)");
}

std::string Tool::SignInWords() const
{
    const auto setting = IfPossible([&] { return ReadSetting(hive(), "AuthenticationType"); });
    return setting ? NumberMeaning(*FindSetting("AuthenticationType"), setting->number) : "";
}

std::vector<LogLine> Tool::LogLines() const
{
    return mark_ ? mark_->Lines() : std::vector<LogLine>();
}

void Tool::Warn(const std::string& text)
{
    if (json)
        warnings_.push_back(text);
    else
        std::cerr << "kelvaroctl: warning: " << Printable(text) << std::endl;
}

}  // namespace kelvaroctl
