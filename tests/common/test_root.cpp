#include "tests/common/test_root.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tests/common/alloc_fault.h"

namespace fs = std::filesystem;

static const WCHAR kKey[] = TEXT("Software\\Zandrel\\Kelvaro");

static void CreateSettingsKey(HKEY hive)
{
    HKEY key = nullptr;
    if (RegCreateKeyExW(hive, kKey, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &key, nullptr) != ERROR_SUCCESS)
        throw std::runtime_error("the settings key cannot be created");
    RegCloseKey(key);
}

// A folder name that no other run and no other test of this run uses.
static fs::path FreshDirectory()
{
    static std::atomic<unsigned> count{0};
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    fs::path path;
    do
        path = fs::temp_directory_path() / ("kelvaro-test-" + std::to_string(now) + "-" + std::to_string(count++));
    while (!fs::create_directory(path));
    return path;
}

TestRoot::TestRoot() : directory_(FreshDirectory().string())
{
    SetEnvironmentVariableW(TEXT("KELVARO_ROOT"), Wide(directory_ + "/root").c_str());
    fs::create_directory(logDirectory());
    for (const HKEY hive : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
        RemoveKey(hive);
        CreateSettingsKey(hive);
    }
    SetText(HKEY_LOCAL_MACHINE, "LogfilePath", logDirectory());
}

TestRoot::~TestRoot()
{
    for (const HKEY hive : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER})
        RemoveKey(hive);
    SetEnvironmentVariableW(TEXT("KELVARO_ROOT"), nullptr);
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
}

void TestRoot::SetBytes(HKEY hive, const std::string& name, DWORD type, const std::vector<BYTE>& bytes)
{
    const LONG error =
        RegSetKeyValueW(hive, kKey, Wide(name).c_str(), type, bytes.data(), static_cast<DWORD>(bytes.size()));
    if (error != ERROR_SUCCESS)
        throw std::runtime_error("cannot set " + name + ": error " + std::to_string(error));
}

void TestRoot::SetText(HKEY hive, const std::string& name, const std::string& value, DWORD type)
{
    const TextString text = Wide(value);
    const BYTE* bytes = reinterpret_cast<const BYTE*>(text.c_str());
    SetBytes(hive, name, type, std::vector<BYTE>(bytes, bytes + (text.size() + 1) * sizeof(WCHAR)));
}

void TestRoot::SetNumber(HKEY hive, const std::string& name, DWORD value)
{
    const BYTE* bytes = reinterpret_cast<const BYTE*>(&value);
    SetBytes(hive, name, REG_DWORD, std::vector<BYTE>(bytes, bytes + sizeof(value)));
}

// The value's bytes; false when it is missing.
static bool ReadValue(HKEY hive, const std::string& name, DWORD* type, std::vector<BYTE>* bytes)
{
    HKEY key = nullptr;
    if (RegOpenKeyW(hive, kKey, &key) != ERROR_SUCCESS)
        return false;
    DWORD size = 0;
    bool found = RegQueryValueExW(key, Wide(name).c_str(), nullptr, type, nullptr, &size) == ERROR_SUCCESS;
    bytes->resize(size);
    if (found && size)
        found = RegQueryValueExW(key, Wide(name).c_str(), nullptr, type, bytes->data(), &size) == ERROR_SUCCESS;
    RegCloseKey(key);
    return found;
}

std::string TestRoot::GetText(HKEY hive, const std::string& name) const
{
    DWORD type = 0;
    std::vector<BYTE> bytes;
    if (!ReadValue(hive, name, &type, &bytes) || type != REG_SZ)
        return "";
    const TextString text(reinterpret_cast<const WCHAR*>(bytes.data()), bytes.size() / sizeof(WCHAR));
    return Narrow(text.substr(0, text.find(WCHAR{0})));
}

bool TestRoot::Has(HKEY hive, const std::string& name) const
{
    DWORD type = 0;
    std::vector<BYTE> bytes;
    return ReadValue(hive, name, &type, &bytes);
}

void TestRoot::RemoveKey(HKEY hive)
{
    RegDeleteKeyW(hive, kKey);
}

std::string TestRoot::logDirectory() const
{
    return (fs::path(directory_) / "log").string();
}

std::string TestRoot::WholeLog() const
{
    const AllocFaultPause pause;
    std::string all;
    for (const auto& entry : fs::directory_iterator(logDirectory())) {
        std::ifstream file(entry.path(), std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        all += text.str();
    }
    return all;
}

std::vector<std::string> TestRoot::LogLines() const
{
    constexpr size_t kPrefix = sizeof("Kelvaro: 2026-01-31 09:05:07 ") - 1;
    std::vector<std::string> lines;
    std::istringstream log(WholeLog());
    for (std::string line; std::getline(log, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.rfind("Kelvaro: ", 0) == 0 && line.size() > kPrefix)
            lines.push_back(line.substr(kPrefix));
    }
    return lines;
}

void TestRoot::ClearLog()
{
    const AllocFaultPause pause;
    for (const auto& entry : fs::directory_iterator(logDirectory()))
        fs::remove(entry.path());
}

bool TestRoot::Logged(const std::string& text, int level) const
{
    const std::vector<std::string> lines = LogLines();
    return std::find(lines.begin(), lines.end(), text + " " + std::to_string(level)) != lines.end();
}
