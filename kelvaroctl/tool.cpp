#include "kelvaroctl/tool.h"

#include <iostream>

namespace kelvaroctl {

std::unique_ptr<Provider> Tool::OpenProvider() const
{
    // Only this scope's settings: an ordinary user may not be allowed to read the machine's, and doesn't need them.
    hive().RequireReadable();
    if (via == "module")
        return std::make_unique<Provider>(LoadModule(modulePath), !user);
    if (!modulePath.empty())
        throw UsageFailure("--module cannot be combined with --via ncrypt, which uses the registered module");
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
