#include "register/command.h"

namespace kelvaro_register {

static const char kUsageText[] =
    "kelvaro-register " KELVARO_VERSION
    "\n"
    "Registers the Zandrel Key Storage Provider for Key Vault with Windows.\n"
    "\n"
    "  kelvaro-register install     registers the provider; kelvaro.dll must be in the system folder\n"
    "  kelvaro-register uninstall   removes the registration; keeps files and settings\n"
    "  kelvaro-register status      shows what is registered and whether the module fits\n"
    "  kelvaro-register prepare     creates the settings keys and the log folder, closed to ordinary users\n"
    "\n"
    "The installer also calls save-settings, restore-settings, forget-settings, check-access, which fails if ordinary\n"
    "users can read the settings, and check-secret, which fails if a client secret is stored in clear text.\n"
    "\n"
    "Exit codes: 0 done; 1 not ready for use (status), no module that fits (install), or a failed check; 2 wrong "
    "command\n"
    "line; 3 Windows refused\n";

static std::string PathOf(const ModulePlace& place)
{
    return Utf8(place.shownFolder) + "\\" + Utf8(kImage);
}

static std::string FitText(const ModulePlace& place, const ModuleFile& file)
{
    switch (file.fit) {
        case ModuleFit::Missing:
            return "is missing";
        case ModuleFit::Unreadable:
            return "cannot be read";
        case ModuleFit::NoModule:
            return "is not a DLL";
        case ModuleFit::WrongMachine:
            return "is for " + MachineName(file.machine) + " and must be for " + MachineName(place.machine);
        case ModuleFit::Fits:
            break;
    }
    return "fits (" + MachineName(file.machine) + ")";
}

// Whether the first place, which is for programs of the system's own kind, has a module that fits.
static bool ReportModules(const ModulePlaces& places, std::string* output)
{
    bool usable = false;
    for (size_t at = 0; at < places.size(); ++at) {
        const ModuleFile file = InspectModule(places[at]);
        *output +=
            "module for " + places[at].programs + ": " + PathOf(places[at]) + " " + FitText(places[at], file) + "\n";
        if (at == 0)
            usable = file.fit == ModuleFit::Fits;
    }
    return usable;
}

static int Status(const CngCalls& calls, const ModulePlaces& places, std::string* output)
{
    const bool usable = ReportModules(places, output);
    const RegistrationState state = ReadRegistration(calls);
    *output += "provider: " + Utf8(kProviderName) + "\n";
    if (!state.recorded)
        *output += "registered: no\n";
    else
        *output += "registered: yes, with " + Utf8(state.image) +
                   (state.ours ? "\n" : ", which is not what this program registers\n");
    *output += std::string("listed as a key storage provider: ") + (state.listed ? "yes" : "no") + "\n";
    const bool ready = usable && state.ours && state.listed;
    *output += ready ? "ready for use\n" : "not ready for use\n";
    return ready ? kDone : kNotInstalled;
}

static int Install(const CngCalls& calls, const ModulePlaces& places, std::string* output)
{
    if (!ReportModules(places, output)) {
        *output += "nothing registered: programs could not load the module\n";
        return kNotInstalled;
    }
    const InstallChanges changes = InstallRegistration(calls);
    *output += Utf8(kProviderName);
    *output += changes.record == Change::Made       ? ": registered with " + Utf8(kImage) + "\n"
               : changes.record == Change::Replaced ? ": registration replaced, now with " + Utf8(kImage) + "\n"
                                                    : ": already registered\n";
    *output += changes.listing == Change::Made ? "added to this machine's key storage providers\n"
                                               : "already one of this machine's key storage providers\n";
    return kDone;
}

static int Uninstall(const CngCalls& calls, std::string* output)
{
    const UninstallChanges changes = UninstallRegistration(calls);
    *output += changes.listing ? "removed from this machine's key storage providers\n"
                               : "was not one of this machine's key storage providers\n";
    *output += Utf8(kProviderName) + (changes.record ? ": registration removed\n" : ": was not registered\n");
    return kDone;
}

int RunRegister(const std::vector<std::string>& arguments, const CngCalls& calls, const ModulePlaces& places,
                std::string* output)
{
    const std::string command = arguments.size() == 1 ? arguments[0] : "";
    try {
        if (command == "install")
            return Install(calls, places, output);
        if (command == "uninstall")
            return Uninstall(calls, output);
        if (command == "status")
            return Status(calls, places, output);
    } catch (const RefusedCall& refusal) {
        *output += std::string("Windows refused: ") + refusal.what() + "\n";
        return kRefused;
    }
    *output += kUsageText;
    return command == "--help" || command == "-h" || command == "/?" ? kDone : kUsage;
}

}  // namespace kelvaro_register
