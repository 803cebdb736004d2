#include "register/settings_windows.h"

#include <memory>
#include <vector>

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

struct KeyCloser {
    void operator()(HKEY key) const { RegCloseKey(key); }
};
using Key = std::unique_ptr<std::remove_pointer_t<HKEY>, KeyCloser>;
}  // namespace

static std::string NameOf(const View& view)
{
    return std::string("the settings of ") + view.programs;
}

static LONG Open(HKEY parent, const WCHAR* name, REGSAM rights, Key* key)
{
    HKEY opened = nullptr;
    const LONG error = RegOpenKeyExW(parent, name, 0, rights, &opened);
    key->reset(opened);
    return error;
}

static DWORD Make(HKEY parent, const WCHAR* name, REGSAM rights, SECURITY_ATTRIBUTES* access, Key* key)
{
    HKEY made = nullptr;
    const LONG error =
        RegCreateKeyExW(parent, name, 0, nullptr, REG_OPTION_NON_VOLATILE, rights, access, &made, nullptr);
    key->reset(made);
    return static_cast<DWORD>(error);
}

// Every key below this one is in the same registry view.
static void OpenParent(const View& view, Key* parent)
{
    Check("opening " + NameOf(view), Make(HKEY_LOCAL_MACHINE, kParent, KEY_ALL_ACCESS | view.flag, nullptr, parent));
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
        Key parent;
        Key settings;
        OpenParent(view, &parent);
        Check("creating " + NameOf(view),
              Make(parent.get(), kSettings, KEY_ALL_ACCESS, access.attributes(), &settings));
        access.Impose(settings.get(), SE_REGISTRY_KEY, NameOf(view));
        SetWhereMissing(settings.get(), TEXT("LogfilePath"), folder);
        SetWhereMissing(settings.get(), TEXT("EventLog"), kEventSource);
    }
}

static void SetMark(HKEY key, const WCHAR* name, bool value)
{
    const DWORD number = value;
    Check("marking the copy of the settings",
          static_cast<DWORD>(
              RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof(number))));
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
    Check(step, static_cast<DWORD>(RegGetKeySecurity(settings, DACL_SECURITY_INFORMATION, descriptor.data(), &size)));
    Check(step, static_cast<DWORD>(RegSetValueExW(saved, kAccess, 0, REG_BINARY, descriptor.data(), size)));
}

void SaveSettings()
{
    Access access(kKeyAccess);
    for (const View& view : kViews) {
        Key parent;
        Key settings;
        Key saved;
        OpenParent(view, &parent);
        RegDeleteTreeW(parent.get(), kSaved);
        Check("saving " + NameOf(view), Make(parent.get(), kSaved, KEY_ALL_ACCESS, access.attributes(), &saved));
        if (Open(parent.get(), kSettings, KEY_READ, &settings) == ERROR_SUCCESS) {
            Key copy;
            Check("saving " + NameOf(view), Make(saved.get(), kSavedSettings, KEY_ALL_ACCESS, nullptr, &copy));
            Check("saving " + NameOf(view), static_cast<DWORD>(RegCopyTreeW(settings.get(), nullptr, copy.get())));
            SaveAccess(settings.get(), saved.get(), "saving " + NameOf(view));
        }
        SetMark(saved.get(), kHadFolder, HasLogFolder());
        SetMark(saved.get(), kComplete, true);
    }
}

static void RestoreAccess(HKEY saved, HKEY settings, const std::string& step)
{
    DWORD size = 0;
    Check(step, static_cast<DWORD>(RegQueryValueExW(saved, kAccess, nullptr, nullptr, nullptr, &size)));
    std::vector<BYTE> descriptor(size);
    Check(step, static_cast<DWORD>(RegQueryValueExW(saved, kAccess, nullptr, nullptr, descriptor.data(), &size)));
    Check(step, static_cast<DWORD>(RegSetKeySecurity(settings, DACL_SECURITY_INFORMATION, descriptor.data())));
}

static void PutBack(HKEY parent, HKEY saved, HKEY copy, const View& view)
{
    Key settings;
    Access access(kKeyAccess);
    const std::string step = "restoring " + NameOf(view);
    Check(step, Make(parent, kSettings, KEY_ALL_ACCESS, access.attributes(), &settings));
    Check(step, static_cast<DWORD>(RegDeleteTreeW(settings.get(), nullptr)));
    Check(step, static_cast<DWORD>(RegCopyTreeW(copy, nullptr, settings.get())));
    RestoreAccess(saved, settings.get(), step);
}

void RestoreSettings()
{
    for (const View& view : kViews) {
        Key parent;
        Key saved;
        Key copy;
        OpenParent(view, &parent);
        if (Open(parent.get(), kSaved, KEY_READ, &saved) != ERROR_SUCCESS || !IsMarked(saved.get(), kComplete))
            continue;
        if (Open(saved.get(), kSavedSettings, KEY_READ, &copy) == ERROR_SUCCESS)
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
    for (const View& view : kViews) {
        Key parent;
        OpenParent(view, &parent);
        RegDeleteTreeW(parent.get(), kSaved);
    }
}

static LONG OpenKey(const View& view, Key* settings)
{
    return Open(HKEY_LOCAL_MACHINE, (WideText(kParent) + TEXT("\\") + kSettings).c_str(), KEY_READ | view.flag,
                settings);
}

std::string ClearSecrets()
{
    std::string found;
    for (const View& view : kViews) {
        Key settings;
        DWORD size = 0;
        if (OpenKey(view, &settings) == ERROR_SUCCESS &&
            RegQueryValueExW(settings.get(), TEXT("ClientSecret"), nullptr, nullptr, nullptr, &size) == ERROR_SUCCESS &&
            size > sizeof(WCHAR))
            found += (found.empty() ? "" : ", ") + std::string(view.programs);
    }
    return found;
}

static bool IsOpen(const Key& settings, const View& view)
{
    return IsOpenToUsers(settings.get(), SE_REGISTRY_KEY, KEY_QUERY_VALUE | KEY_SET_VALUE, NameOf(view));
}

std::string OpenSettings()
{
    std::string found;
    for (const View& view : kViews) {
        Key settings;
        if (OpenKey(view, &settings) == ERROR_SUCCESS && IsOpen(settings, view))
            found += (found.empty() ? "" : ", ") + std::string(view.programs);
    }
    return found;
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
