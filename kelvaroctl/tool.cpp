#include "kelvaroctl/tool.h"

#include <iostream>

namespace kelvaroctl {

std::unique_ptr<Provider> Tool::OpenProvider() const
{
    // An ordinary user's keys need nothing of the machine's settings, which that user may not be able to read.
    hive().Exists();
    if (via == "module")
        return std::make_unique<Provider>(LoadModule(modulePath), !user);
    if (!modulePath.empty())
        throw UsageFailure("--module names a module, and with --via ncrypt it is the registered one that is used");
    return std::make_unique<Provider>(OpenRouter(), !user);
}

void Tool::Warn(const std::string& text)
{
    if (json)
        warnings_.push_back(text);
    else
        std::cerr << "kelvaroctl: warning: " << Printable(text) << std::endl;
}

}  // namespace kelvaroctl
