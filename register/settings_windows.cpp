#include "register/settings_windows.h"

#include <vector>

#include "platform/owner.h"
#include "platform/product.h"
#include "register/log_folder_windows.h"
#include "register/module_files.h"

namespace kelvaro_register {

static const WCHAR kParent[] = TEXT("Software\\Zandrel");
static const WCHAR kSettings[] = TEXT("Kelvaro");
static const WCHAR kSaved[] = TEXT("Kelvaro.saved");
static const WCHAR kSavedSettings[] = TEXT("Settings");
// Values in the copy: whether it is complete, whether the log folder existed, and who could read the settings.
static const WCHAR kComplete[] = TEXT("Complete");
static const WCHAR kHadFolder[] = TEXT("HadFolder");
static const WCHAR kAccess[] = TEXT("Access");

static const WCHAR kEventSource[] = TEXT("Kelvaro");
static const WCHAR kKeyAccess[] = TEXT("O:BAG:SYD:P(A;CI;KA;;;SY)(A;CI;KA;;;BA)");

namespace {
struct View {
    const char* programs;
    REGSAM flag;
};
const View kViews[] = {{"64-bit programs", KEY_WOW64_64KEY}, {"32-bit programs", KEY_WOW64_32KEY}};

using Key = Owner<std::remove_pointer_t<HKEY>, RegCloseKey>;
}  // namespace

static std::string NameOf(const View& view)
{
    return std::string("the settings of ") + view.programs;
}

static LONG Open(HKEY parent, const WCHAR* name, Key* key, REGSAM view = 0)
{
    HKEY opened = nullptr;
    const LONG error = RegOpenKeyExW(parent, name, 0, KEY_READ | view, &opened);
    key->reset(opened);
    return error;
}

// Every key below `parent` is in the same registry view. access: NULL for the inherited one.
static Key Make(HKEY parent, const WCHAR* name, const std::string& step, SECURITY_ATTRIBUTES* access = nullptr,
                REGSAM view = 0)
{
    HKEY made = nullptr;
    Check(step, RegCreateKeyExW(parent, name, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS | view, access, &made,
                                nullptr));
    return Key(made);
}

static Key OpenParent(const View& view)
{
    return Make(HKEY_LOCAL_MACHINE, kParent, "opening " + NameOf(view), nullptr, view.flag);
}

static void Set(HKEY key, const WCHAR* name, DWORD type, const void* value, DWORD size, const std::string& step)
{
    Check(step, RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(value), size));
}

static void SetWhereMissing(HKEY key, const WCHAR* name, const WideText& value)
{
    if (RegQueryValueExW(key, name, nullptr, nullptr, nullptr, nullptr) == ERROR_FILE_NOT_FOUND) {
        RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                       static_cast<DWORD>((value.size() + 1) * sizeof(WCHAR)));
    }
}

void PrepareSettings()
{
    const WideText folder = PrepareLogFolder();
    Access access(kKeyAccess);
    for (const View& view : kViews) {
        const Key parent = OpenParent(view);
        const Key settings = Make(parent.get(), kSettings, "creating " + NameOf(view), access.attributes());
        access.Impose(settings.get(), SE_REGISTRY_KEY, NameOf(view));
        SetWhereMissing(settings.get(), TEXT("LogfilePath"), folder);
        SetWhereMissing(settings.get(), TEXT("EventLog"), kEventSource);
    }
}

static void SetMark(HKEY key, const WCHAR* name, bool value)
{
    const DWORD number = value;
    Set(key, name, REG_DWORD, &number, sizeof(number), "marking the copy of the settings");
}

static bool IsMarked(HKEY key, const WCHAR* name)
{
    DWORD number = 0;
    DWORD size = sizeof(number);
    return RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(&number), &size) == ERROR_SUCCESS &&
           number;
}

static void SaveAccess(HKEY settings, HKEY saved, const std::string& step)
{
    DWORD size = 0;
    RegGetKeySecurity(settings, DACL_SECURITY_INFORMATION, nullptr, &size);
    std::vector<BYTE> descriptor(size);
    Check(step, RegGetKeySecurity(settings, DACL_SECURITY_INFORMATION, descriptor.data(), &size));
    Set(saved, kAccess, REG_BINARY, descriptor.data(), size, step);
}

void SaveSettings()
{
    Access access(kKeyAccess);
    for (const View& view : kViews) {
        const std::string step = "saving " + NameOf(view);
        const Key parent = OpenParent(view);
        RegDeleteTreeW(parent.get(), kSaved);
        const Key saved = Make(parent.get(), kSaved, step, access.attributes());
        Key settings;
        if (Open(parent.get(), kSettings, &settings) == ERROR_SUCCESS) {
            const Key copy = Make(saved.get(), kSavedSettings, step);
            Check(step, RegCopyTreeW(settings.get(), nullptr, copy.get()));
            SaveAccess(settings.get(), saved.get(), step);
        }
        SetMark(saved.get(), kHadFolder, HasLogFolder());
        SetMark(saved.get(), kComplete, true);
    }
}

static void RestoreAccess(HKEY saved, HKEY settings, const std::string& step)
{
    DWORD size = 0;
    Check(step, RegQueryValueExW(saved, kAccess, nullptr, nullptr, nullptr, &size));
    std::vector<BYTE> descriptor(size);
    Check(step, RegQueryValueExW(saved, kAccess, nullptr, nullptr, descriptor.data(), &size));
    Check(step, RegSetKeySecurity(settings, DACL_SECURITY_INFORMATION, descriptor.data()));
}

static void PutBack(HKEY parent, HKEY saved, HKEY copy, const View& view)
{
    Access access(kKeyAccess);
    const std::string step = "restoring " + NameOf(view);
    const Key settings = Make(parent, kSettings, step, access.attributes());
    Check(step, RegDeleteTreeW(settings.get(), nullptr));
    Check(step, RegCopyTreeW(copy, nullptr, settings.get()));
    RestoreAccess(saved, settings.get(), step);
}

void RestoreSettings()
{
    for (const View& view : kViews) {
        const Key parent = OpenParent(view);
        Key saved;
        Key copy;
        if (Open(parent.get(), kSaved, &saved) != ERROR_SUCCESS || !IsMarked(saved.get(), kComplete))
            continue;
        if (Open(saved.get(), kSavedSettings, &copy) == ERROR_SUCCESS)
            PutBack(parent.get(), saved.get(), copy.get(), view);
        else
            RegDeleteTreeW(parent.get(), kSettings);
        if (!IsMarked(saved.get(), kHadFolder))
            RemoveLogFolder();
        RegDeleteTreeW(parent.get(), kSaved);
    }
}

void ForgetSettings()
{
    for (const View& view : kViews)
        RegDeleteTreeW(OpenParent(view).get(), kSaved);
}

static LONG OpenKey(const View& view, Key* settings)
{
    return Open(HKEY_LOCAL_MACHINE, kSettingsKey, settings, view.flag);
}

// The kinds of programs whose settings have a problem.
static std::string ProgramsWith(bool (*problem)(const Key& settings, const View& view))
{
    std::string found;
    for (const View& view : kViews) {
        Key settings;
        if (OpenKey(view, &settings) == ERROR_SUCCESS && problem(settings, view))
            found += (found.empty() ? "" : ", ") + std::string(view.programs);
    }
    return found;
}

static bool HasClearSecret(const Key& settings, const View&)
{
    DWORD size = 0;
    return RegQueryValueExW(settings.get(), TEXT("ClientSecret"), nullptr, nullptr, nullptr, &size) == ERROR_SUCCESS &&
           size > sizeof(WCHAR);
}

static bool IsOpen(const Key& settings, const View& view)
{
    return IsOpenToUsers(settings.get(), SE_REGISTRY_KEY, KEY_QUERY_VALUE | KEY_SET_VALUE, NameOf(view));
}

std::string ClearSecrets()
{
    return ProgramsWith(HasClearSecret);
}

std::string OpenSettings()
{
    return ProgramsWith(IsOpen);
}

static WideText LogfilePath(const Key& settings)
{
    WCHAR text[MAX_PATH] = {};
    DWORD size = sizeof(text);
    const LONG error = RegGetValueW(settings.get(), nullptr, TEXT("LogfilePath"), RRF_RT_REG_SZ, nullptr, text, &size);
    return error == ERROR_SUCCESS ? text : WideText();
}

std::string DescribeSettings()
{
    std::string text;
    std::set<WideText> folders;
    for (const View& view : kViews) {
        Key settings;
        const LONG error = OpenKey(view, &settings);
        text += NameOf(view);
        if (error == ERROR_FILE_NOT_FOUND)
            text += " are missing\n";
        else if (error != ERROR_SUCCESS)
            text += " cannot be read: error " + std::to_string(error) + "\n";
        else if (IsOpen(settings, view))
            text += " can be read by ordinary users: keep no secret there\n";
        else
            text += " are closed to ordinary users\n";
        if (error == ERROR_SUCCESS)
            folders.insert(LogfilePath(settings));
    }
    return text + DescribeLogFolders(folders);
}

}  // namespace kelvaro_register
