#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "platform/linux/file_store.h"
#include "tests/platform/platform_root.h"

namespace {

constexpr char16_t kKey[] = u"Software\\Zandrel\\Kelvaro";

std::string MachineFile(const PlatformRoot& root)
{
    return root.File("registry/HKEY_LOCAL_MACHINE.reg");
}

void WriteMachineHive(const PlatformRoot& root, const std::string& values)
{
    WriteFileText(MachineFile(root),
                  "Windows Registry Editor Version 5.00\n\n"
                  "[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\n" +
                      values);
}

class OpenKey {
  public:
    explicit OpenKey(HKEY hive, LPCWSTR path = kKey) { error_ = RegOpenKeyW(hive, path, &key_); }
    ~OpenKey()
    {
        if (key_ != nullptr)
            RegCloseKey(key_);
    }
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;

    LONG error() const { return error_; }
    HKEY get() const { return key_; }

  private:
    HKEY key_ = nullptr;
    LONG error_;
};

LONG SetText(HKEY hive, LPCWSTR name, const std::u16string& text)
{
    return RegSetKeyValueW(hive, kKey, name, REG_SZ, text.c_str(), static_cast<DWORD>((text.size() + 1) * 2));
}

// The text of a REG_SZ, or "error N", or "type N".
std::string GetText(HKEY hive, LPCWSTR name)
{
    const OpenKey key(hive);
    DWORD type = 0;
    DWORD size = 0;
    LONG error = key.error();
    if (error == ERROR_SUCCESS)
        error = RegQueryValueExW(key.get(), name, nullptr, &type, nullptr, &size);
    if (error != ERROR_SUCCESS)
        return "error " + std::to_string(error);
    if (type != REG_SZ)
        return "type " + std::to_string(type);
    std::u16string text(size / 2, u'?');
    EXPECT_EQ(RegQueryValueExW(key.get(), name, nullptr, &type, reinterpret_cast<BYTE*>(text.data()), &size),
              ERROR_SUCCESS);
    return ToUtf8(text.c_str());
}

}  // namespace

TEST(Registry, KeysThatAreAndKeysThatAreNot)
{
    const PlatformRoot root;
    EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE).error(), ERROR_FILE_NOT_FOUND) << "no file";
    WriteMachineHive(root, "");
    EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE).error(), ERROR_SUCCESS);
    EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE, u"SOFTWARE\\zandrel\\KELVARO\\").error(), ERROR_SUCCESS);
    EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Zandrel").error(), ERROR_SUCCESS) << "stands above a key";
    EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Zand").error(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE, u"\\Software").error(), ERROR_BAD_PATHNAME);
    EXPECT_EQ(OpenKey(HKEY_CURRENT_USER).error(), ERROR_FILE_NOT_FOUND) << "the hives are apart";
    EXPECT_EQ(OpenKey(nullptr).error(), ERROR_INVALID_HANDLE);

    const OpenKey above(HKEY_LOCAL_MACHINE, u"Software");
    HKEY below = nullptr;
    EXPECT_EQ(RegOpenKeyW(above.get(), u"Zandrel\\Kelvaro", &below), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(below), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), ERROR_SUCCESS);
}

TEST(Registry, AQueryTellsTypeAndSizeWhateverTheTypeIs)
{
    const PlatformRoot root;
    WriteMachineHive(root, "\"Text\"=\"ab\"\n\"Number\"=dword:00000008\n\"Expand\"=hex(2):61,00,00,00\n");
    const OpenKey key(HKEY_LOCAL_MACHINE);
    const struct {
        const char16_t* name;
        DWORD room;
        LONG error;
        DWORD type;
        DWORD size;
    } rows[] = {
        {u"Text", 6, ERROR_SUCCESS, REG_SZ, 6},
        {u"tEXT", 100, ERROR_SUCCESS, REG_SZ, 6},
        {u"Text", 5, ERROR_MORE_DATA, REG_SZ, 6},
        {u"Text", 0, ERROR_MORE_DATA, REG_SZ, 6},
        {u"Number", 4, ERROR_SUCCESS, REG_DWORD, 4},
        {u"Number", 3, ERROR_MORE_DATA, REG_DWORD, 4},
        {u"Expand", 100, ERROR_SUCCESS, REG_EXPAND_SZ, 4},
    };
    for (const auto& row : rows) {
        BYTE buffer[100] = {0xEE};
        DWORD type = 99;
        DWORD size = row.room;
        EXPECT_EQ(RegQueryValueExW(key.get(), row.name, nullptr, &type, buffer, &size), row.error);
        EXPECT_EQ(type, row.type);
        EXPECT_EQ(size, row.size);
        EXPECT_EQ(buffer[0] == 0xEE, row.error != ERROR_SUCCESS) << "an unfit buffer is left alone";
        size = 0;
        EXPECT_EQ(RegQueryValueExW(key.get(), row.name, nullptr, &type, nullptr, &size), ERROR_SUCCESS);
        EXPECT_EQ(size, row.size);
    }
    BYTE byte;
    EXPECT_EQ(RegQueryValueExW(key.get(), u"Text", nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(RegQueryValueExW(key.get(), u"None", nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegQueryValueExW(key.get(), nullptr, nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegQueryValueExW(key.get(), u"Text", nullptr, nullptr, &byte, nullptr), ERROR_INVALID_PARAMETER);
}

TEST(Registry, EveryChangeOfTheFileIsSeen)
{
    const PlatformRoot root;
    // Same size, same file, and faster than a coarse time stamp: only the bytes differ.
    for (int number = 100; number < 300; number++) {
        const std::string vault = "vault" + std::to_string(number);
        WriteMachineHive(root, "\"KeyVault\"=\"" + vault + "\"\n");
        EXPECT_EQ(GetText(HKEY_LOCAL_MACHINE, u"KeyVault"), vault);
    }
    const OpenKey key(HKEY_LOCAL_MACHINE);
    std::filesystem::remove(MachineFile(root));
    EXPECT_EQ(GetText(HKEY_LOCAL_MACHINE, u"KeyVault"), "error 2");
    EXPECT_EQ(RegQueryValueExW(key.get(), u"KeyVault", nullptr, nullptr, nullptr, nullptr), ERROR_KEY_DELETED);
    EXPECT_EQ(RegSetKeyValueW(key.get(), nullptr, u"KeyVault", REG_SZ, u"", 2), ERROR_KEY_DELETED);
    EXPECT_FALSE(std::filesystem::exists(MachineFile(root))) << "a value makes no key";
}

TEST(Registry, WritingKeepsWhatItDoesNotChange)
{
    const PlatformRoot root;
    WriteMachineHive(root, "; by hand\n\"LogfilePath\"=\"C:\\\\logs\"\n\"ClientSecret\"=\"tiger\"\n");
    ASSERT_EQ(chmod(MachineFile(root).c_str(), 0644), 0);
    const OpenKey key(HKEY_LOCAL_MACHINE);
    ASSERT_EQ(RegSetKeyValueW(key.get(), nullptr, u"clientsecret", REG_SZ, u"", 2), ERROR_SUCCESS);
    const DWORD level = 10;
    ASSERT_EQ(RegSetKeyValueW(key.get(), nullptr, u"LoggingLevel", REG_DWORD, &level, 4), ERROR_SUCCESS);
    ASSERT_EQ(RegSetKeyValueW(key.get(), u"Sub", u"x", REG_BINARY, "\x01\x02", 2), ERROR_SUCCESS);
    const std::string expected =
        "Windows Registry Editor Version 5.00\n\n"
        "[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\n"
        "; by hand\n\"LogfilePath\"=\"C:\\\\logs\"\n\"ClientSecret\"=\"\"\n\"LoggingLevel\"=dword:0000000a\n\n"
        "[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro\\Sub]\n\"x\"=hex:01,02\n";
    EXPECT_EQ(ReadFileText(MachineFile(root)), expected);
    // The group keeps what it had, and all others are shut out.
    EXPECT_EQ(ModeOf(MachineFile(root)), 0640u);

    EXPECT_EQ(RegDeleteKeyValueW(key.get(), nullptr, u"loggingLEVEL"), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kKey, u"LoggingLevel"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(GetText(HKEY_LOCAL_MACHINE, u"LogfilePath"), "C:\\logs");
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKey), ERROR_ACCESS_DENIED) << "there is a key below it";
    EXPECT_EQ(RegDeleteKeyW(key.get(), u"Sub"), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKey), ERROR_SUCCESS);
    EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE).error(), ERROR_FILE_NOT_FOUND);
}

TEST(Registry, TextsOfAllKindsComeBackUnchanged)
{
    const PlatformRoot root;
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, kKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE,
                              nullptr, &key, nullptr),
              ERROR_SUCCESS);
    RegCloseKey(key);
    EXPECT_EQ(ModeOf(root.UserFile("registry/HKEY_CURRENT_USER.reg")), 0600u);
    const std::u16string rows[] = {u"",
                                   u"plain",
                                   u"a\\b\"c",
                                   u"two\r\nlines\tand a tab",
                                   u"\u20AC \U0001F511",
                                   u"; [x] = \\",
                                   std::u16string(20000, u'A')};
    for (const std::u16string& row : rows) {
        ASSERT_EQ(SetText(HKEY_CURRENT_USER, u"Some \"name\\", row), ERROR_SUCCESS);
        EXPECT_EQ(GetText(HKEY_CURRENT_USER, u"some \"NAME\\"), ToUtf8(row));
    }
    EXPECT_EQ(SetText(HKEY_CURRENT_USER, u"line\nfeed", u""), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(SetText(HKEY_CURRENT_USER, u"long", std::u16string(8 << 20, u'A')), ERROR_NO_SYSTEM_RESOURCES);
    EXPECT_EQ(GetText(HKEY_LOCAL_MACHINE, u"Some \"name\\"), "error 2");
}

TEST(Registry, ADamagedFileIsRefusedAndNeverTouched)
{
    const PlatformRoot root;
    WriteMachineHive(root, "\"KeyVault\"=\"%G\"\n");
    const OpenKey before(HKEY_LOCAL_MACHINE);
    WriteMachineHive(root, "\"KeyVault\"=\"%G\n");
    const std::string damaged = ReadFileText(MachineFile(root));
    EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE).error(), ERROR_BADDB);
    EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE, nullptr).error(), ERROR_BADDB);
    EXPECT_EQ(RegQueryValueExW(before.get(), u"KeyVault", nullptr, nullptr, nullptr, nullptr), ERROR_BADDB);
    EXPECT_EQ(SetText(HKEY_LOCAL_MACHINE, u"KeyVault", u"x"), ERROR_BADDB);
    EXPECT_EQ(RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kKey, u"KeyVault"), ERROR_BADDB);
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, 0, nullptr, &key, nullptr), ERROR_BADDB);
    EXPECT_EQ(ReadFileText(MachineFile(root)), damaged);
    WriteMachineHive(root, "\"KeyVault\"=\"mended\"\n");
    EXPECT_EQ(GetText(HKEY_LOCAL_MACHINE, u"KeyVault"), "mended");
}

TEST(Registry, ALockThatAnotherHoldsStopsOnlyWhatWouldChangeSomething)
{
    const PlatformRoot root;
    WriteMachineHive(root, "\"KeyVault\"=\"a\"\n");
    StoreLock held;
    ASSERT_EQ(held.Acquire(MachineFile(root)), ERROR_SUCCESS);
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, 0, nullptr, &key, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    EXPECT_EQ(SetText(HKEY_LOCAL_MACHINE, u"KeyVault", u"a"), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kKey, u"none"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, u"none"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(GetText(HKEY_LOCAL_MACHINE, u"KeyVault"), "a");
}

TEST(Registry, WhatIsNoRegularFileIsADamagedHive)
{
    const PlatformRoot root;
    WriteFileText(root.File("target"), "Windows Registry Editor Version 5.00\n");
    std::filesystem::create_directories(root.File("registry"));
    std::filesystem::create_symlink(root.File("target"), MachineFile(root));
    EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE).error(), ERROR_BADDB);
    EXPECT_EQ(SetText(HKEY_LOCAL_MACHINE, u"KeyVault", u"a"), ERROR_BADDB);
    EXPECT_EQ(ReadFileText(root.File("target")), "Windows Registry Editor Version 5.00\n");
    std::filesystem::remove(MachineFile(root));
    ASSERT_EQ(mkfifo(MachineFile(root).c_str(), 0600), 0);
    EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE).error(), ERROR_BADDB);
    EXPECT_EQ(SetText(HKEY_LOCAL_MACHINE, u"KeyVault", u"a"), ERROR_BADDB);
}

TEST(Registry, ATransactionTakesEffectAsAWholeUnlessSomebodyElseWrites)
{
    const struct {
        const char* name;
        bool otherWrites, commits;
        std::string a, b;
    } rows[] = {
        {"alone", false, true, "mine", "mine"},
        {"somebody else writes", true, true, "old", "theirs"},
        {"no commit", false, false, "old", "old"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const PlatformRoot root;
        WriteMachineHive(root, "\"A\"=\"old\"\n\"B\"=\"old\"\n");
        const HANDLE transaction = CreateTransaction(nullptr, nullptr, 0, 0, 0, 0, nullptr);
        DWORD flags = 1;
        EXPECT_TRUE(GetHandleInformation(transaction, &flags));
        EXPECT_EQ(0u, flags);
        HKEY key = nullptr;
        ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyTransactedW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_QUERY_VALUE | KEY_SET_VALUE,
                                                       &key, transaction, nullptr));
        for (const LPCWSTR name : {u"A", u"B"})
            EXPECT_EQ(ERROR_SUCCESS, RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(u"mine"), 10));
        EXPECT_EQ("old", GetText(HKEY_LOCAL_MACHINE, u"A"));
        char16_t seen[5];
        DWORD size = sizeof seen;
        EXPECT_EQ(ERROR_SUCCESS, RegQueryValueExW(key, u"A", nullptr, nullptr, reinterpret_cast<BYTE*>(seen), &size));
        EXPECT_EQ(std::u16string(u"mine"), seen);
        if (row.otherWrites) {
            EXPECT_EQ(ERROR_SUCCESS, SetText(HKEY_LOCAL_MACHINE, u"B", u"theirs"));
        }
        if (row.commits) {
            EXPECT_EQ(!row.otherWrites, CommitTransaction(transaction) != FALSE);
            EXPECT_EQ(ERROR_TRANSACTION_NOT_ACTIVE, RegSetValueExW(key, u"A", 0, REG_SZ, nullptr, 0));
        }
        EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(key));
        EXPECT_TRUE(CloseHandle(transaction));
        EXPECT_FALSE(GetHandleInformation(transaction, &flags));
        EXPECT_EQ(row.a, GetText(HKEY_LOCAL_MACHINE, u"A"));
        EXPECT_EQ(row.b, GetText(HKEY_LOCAL_MACHINE, u"B"));
    }
}

TEST(Registry, WritersInThreadsAndProcessesLoseNothing)
{
    const PlatformRoot root;
    const auto name = [](int writer, int i) {
        return std::u16string{static_cast<char16_t>(u'0' + writer), static_cast<char16_t>(u'a' + i)};
    };
    OnThreadsAndInAChild(2, [&name](int writer) {
        for (int i = 0; i < 15; i++)
            ASSERT_EQ(SetText(HKEY_LOCAL_MACHINE, name(writer, i).c_str(), name(writer, i)), ERROR_SUCCESS);
    });
    for (const int writer : {0, 1, 2}) {
        for (int i = 0; i < 15; i++)
            EXPECT_EQ(GetText(HKEY_LOCAL_MACHINE, name(writer, i).c_str()), ToUtf8(name(writer, i)));
    }
}
