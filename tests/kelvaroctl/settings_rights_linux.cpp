#include <grp.h>
#include <unistd.h>

#include <filesystem>

#include "tests/kelvaroctl/settings_rights.h"

namespace fs = std::filesystem;

void LetEverybodyReadSettings(const std::string& root)
{
    const auto add = [](const fs::path& path, fs::perms perms) { fs::permissions(path, perms, fs::perm_options::add); };
    add(root + "/root", fs::perms::others_exec);
    add(root + "/root/registry", fs::perms::others_exec);
    add(root + "/root/registry/HKEY_LOCAL_MACHINE.reg", fs::perms::others_read);
}

void LetEverybodyWriteTo(const std::string& folder)
{
    fs::permissions(folder, fs::perms::others_write, fs::perm_options::add);
}

std::string AccountToAllow()
{
    // Only root may give a file to a group that it isn't in.
    const struct group* const found = geteuid() == 0 ? getgrnam("daemon") : getgrgid(getegid());
    return found ? found->gr_name : "root";
}
