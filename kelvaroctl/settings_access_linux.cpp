#include "kelvaroctl/settings_access.h"

#include <errno.h>
#include <grp.h>
#include <pwd.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/places.h"
#include "kelvaroctl/settings_hive.h"
#include "platform/linux/paths.h"

namespace kelvaroctl {

namespace {

// What an account must be able to read to use the settings and the secret in them.
struct Places {
    std::string folders[3];
    std::string files[2];
};

Places PlacesOfSettings()
{
    const std::string root = RootDirectory();
    return {{root, root + "/registry", root + "/dpapi"},
            {SettingsPlace(HKEY_LOCAL_MACHINE), root + "/dpapi/master.key"}};
}

mode_t ModeOf(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode : 0;
}

gid_t GroupNamed(const std::string& name)
{
    const struct group* const found = getgrnam(name.c_str());
    if (!found)
        throw UsageFailure("there is no group '" + name + "' on this machine");
    return found->gr_gid;
}

// group: none to allow only the owner.
void Restrict(const std::string& path, std::optional<gid_t> group, mode_t alone, mode_t shared)
{
    const bool done = (!group || chown(path.c_str(), static_cast<uid_t>(-1), *group) == 0) &&
                      chmod(path.c_str(), group ? shared : alone) == 0;
    if (!done)
        throw ConfigurationFailure("cannot change the mode of " + path + ": " + strerror(errno));
}

// Files created later would get mode 0600 whatever their folder allows, so they are created here.
void MakeFiles()
{
    SettingsHive(HKEY_LOCAL_MACHINE).Create();
    BYTE byte = 0;
    DATA_BLOB input = {sizeof(byte), &byte};
    DATA_BLOB output = {};
    if (!CryptProtectData(&input, nullptr, nullptr, nullptr, nullptr, CRYPTPROTECT_LOCAL_MACHINE, &output))
        throw ConfigurationFailure("cannot create the data protection master key: error " +
                                   std::to_string(GetLastError()));
    LocalFree(output.pbData);
}

}  // namespace

SettingsAccess ReadSettingsAccess()
{
    const Places places = PlacesOfSettings();
    const std::string& file = places.files[0];
    const mode_t folders[] = {ModeOf(places.folders[0]), ModeOf(places.folders[1])};
    SettingsAccess access;
    access.open = (folders[0] & S_IWOTH) || ((folders[0] & S_IXOTH) && (folders[1] & S_IWOTH)) ||
                  ((folders[0] & folders[1] & S_IXOTH) && (ModeOf(file) & (S_IROTH | S_IWOTH)));
    struct stat status;
    if (stat(file.c_str(), &status) == 0) {
        const struct passwd* const owner = getpwuid(status.st_uid);
        access.readers.push_back(owner ? owner->pw_name : std::to_string(status.st_uid));
        if (status.st_mode & (S_IRGRP | S_IWGRP)) {
            const struct group* const group = getgrgid(status.st_gid);
            access.readers.push_back("group " + std::string(group ? group->gr_name : std::to_string(status.st_gid)));
        }
    }
    if (access.open)
        access.readers.push_back("everyone");
    return access;
}

void ProtectSettings(const std::vector<std::string>& accounts)
{
    if (accounts.size() > 1)
        throw UsageFailure("only one group can be allowed on this system: create one for all these accounts");
    std::optional<gid_t> group;
    if (!accounts.empty())
        group = GroupNamed(accounts[0]);
    MakeFiles();
    const Places places = PlacesOfSettings();
    for (const std::string& file : places.files)
        Restrict(file, group, S_IRUSR | S_IWUSR, S_IRUSR | S_IWUSR | S_IRGRP);
    for (const std::string& folder : places.folders)
        Restrict(folder, group, S_IRWXU, S_IRWXU | S_IRGRP | S_IXGRP);
}

}  // namespace kelvaroctl
