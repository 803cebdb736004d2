#include "kelvaroctl/tool.h"

#include <iostream>

namespace kelvaroctl {

std::unique_ptr<Provider> Tool::OpenProvider() const
{
    SettingsHive(HKEY_LOCAL_MACHINE).Exists();
    if (user)
        SettingsHive(HKEY_CURRENT_USER).Exists();
    return std::make_unique<Provider>(modulePath, !user);
}

void Tool::Warn(const std::string& text)
{
    if (json)
        warnings_.push_back(text);
    else
        std::cerr << "kelvaroctl: warning: " << Printable(text) << std::endl;
}

}  // namespace kelvaroctl
