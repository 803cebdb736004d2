// The registry's files, and the registry's functions over them.
#include <errno.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>

#include "platform/linux/file_store.h"
#include "platform/linux/registry_file.h"
#include "platform/owner.h"
#include "tests/common/row.h"
#include "tests/platform/platform_root.h"

namespace {

using std::string_literals::operator""s;

constexpr char16_t kKey[] = u"Software\\Zandrel\\Kelvaro";
const std::string kFirstLine = "Windows Registry Editor Version 5.00\n\n";
const std::string kHead = kFirstLine + "[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\n";

std::string MachineFile(const PlatformRoot& root)
{
    return root.File("registry/HKEY_LOCAL_MACHINE.reg");
}

void WriteMachineHive(const PlatformRoot& root, const std::string& values)
{
    WriteFileText(MachineFile(root), kHead + values);
}

struct OpenKey : private NonCopyable {
    explicit OpenKey(HKEY hive = HKEY_LOCAL_MACHINE, LPCWSTR path = kKey) : error(RegOpenKeyW(hive, path, &key)) {}
    ~OpenKey() { RegCloseKey(key); }

    HKEY key = nullptr;
    const LONG error;
};

LONG Create(HKEY hive)
{
    HKEY key = nullptr;
    const LONG error = RegCreateKeyExW(hive, kKey, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &key, nullptr);
    EXPECT_EQ(key != nullptr, error == ERROR_SUCCESS);
    return error == ERROR_SUCCESS ? RegCloseKey(key) : error;
}

LONG Query(HKEY key, LPCWSTR name)
{
    return RegQueryValueExW(key, name, nullptr, nullptr, nullptr, nullptr);
}

LONG SetText(LPCWSTR name, const std::u16string& text, HKEY hive = HKEY_LOCAL_MACHINE)
{
    return RegSetKeyValueW(hive, kKey, name, REG_SZ, text.c_str(), static_cast<DWORD>((text.size() + 1) * 2));
}

// The text of a REG_SZ, or "error N".
std::string GetText(LPCWSTR name, HKEY hive = HKEY_LOCAL_MACHINE)
{
    const OpenKey key(hive);
    std::vector<WCHAR> text(20002);
    DWORD type = REG_SZ;
    DWORD size = static_cast<DWORD>(text.size() * sizeof(WCHAR));
    const LONG error = key.error != ERROR_SUCCESS ? key.error
                                                  : RegQueryValueExW(key.key, name, nullptr, &type,
                                                                     reinterpret_cast<BYTE*>(text.data()), &size);
    EXPECT_EQ(type, REG_SZ);
    return error == ERROR_SUCCESS ? ToUtf8(text.data()) : "error " + std::to_string(error);
}

// A file that can't be replaced, or empty.
std::string fixedFile;

}  // namespace

// The layer's calls come here first.
extern "C" int rename(const char* from, const char* to) noexcept
{
    if (to == fixedFile) {
        errno = EIO;
        return -1;
    }
    return static_cast<int>(syscall(SYS_rename, from, to));
}

TEST(RegistryFile, WrittenAsTheEditorWritesItAndReadBackTheSame)
{
    const std::string asItIs =
        "Windows Registry Editor Version 5.00\n"
        "\n"
        "; who keeps this file\n"
        "[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\n"
        "\"KeyVault\"=\"%G\"\n"
        "; ten is everything\n"
        "\"LoggingLevel\"=dword:0000000a\n"
        "\"LogfilePath\"=\"C:\\\\logs \\\"a\\\"\"\n"
        "@=hex:01,02\n"
        "\"many\"=hex(7):00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,\\\n"
        "  15,16,17,18,19,1a,1b,1c,1d,1e,1f\n"
        "\"tab\"=hex(1):09,00,00,00\n"
        "\"cut\"=hex(1):61\n"
        "\"unterminated\"=hex(1):61,00\n"
        "\"two texts\"=hex(1):61,00,00,00,62,00,00,00\n"
        "\"short\"=hex(4):01\n"
        "\n"
        "[HKEY_LOCAL_MACHINE]\n"
        "\n"
        "; the end\n";
    const std::string damaged = "damaged";
    const Row<std::string, std::string> rows[] = {
        {asItIs, asItIs},
        {kHead + "\"x\"=\"contoso\" ; our vault", kHead + "\"x\"=\"contoso\"\n\n; our vault\n"},
        // Keys and values are merged without regard to case.
        {kHead + "\"\u00E4\u03C9\u044F\"=dword:1\n\"\u00C4\u03A9\u042F\"=dword:2\n\"\u00DF\"=\"\"\n\"ss\"=\"\"\n",
         kHead + "\"\u00C4\u03A9\u042F\"=dword:00000002\n\"\u00DF\"=\"\"\n\"ss\"=\"\"\n"},
        {kHead + "\"x\"=dword:1\n\"X\"=dword:2\n[hkey_local_machine\\SOFTWARE\\zandrel\\kelvaro]\n; y\n\"y\"=\"\"",
         kHead + "\"X\"=dword:00000002\n; y\n\"y\"=\"\"\n"},
        {kHead + "\"x\"=\"a", damaged},
        {kHead + "\"x\"=-", damaged},
        {kHead + "[-HKEY_LOCAL_MACHINE\\Software\\other]", damaged},
        {kHead + "[HKEY_CURRENT_USER\\Software\\K]", damaged},
        {kHead + "[HKEY_LOCAL_MACHINES\\K]", damaged},
    };
    for (const auto& [content, rewritten] : rows) {
        RegistryHive hive;
        const bool good = ParseRegistryFile(content, u"HKEY_LOCAL_MACHINE", &hive);
        const SecretString text = FormatRegistryFile(hive, u"HKEY_LOCAL_MACHINE");
        EXPECT_EQ(good ? std::string_view(text) : damaged, rewritten) << content;
    }
}

TEST(Registry, AQueryGivesTypeAndSize)
{
    const PlatformRoot root;
    EXPECT_EQ(OpenKey().error, ERROR_FILE_NOT_FOUND) << "no file";
    WriteMachineHive(root, "\"Text\"=\"ab\"\n\"Number\"=dword:00000008\n\"Expand\"=hex(2):61,00,00,00\n");
    EXPECT_EQ(OpenKey(HKEY_CURRENT_USER).error, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Zand").error, ERROR_FILE_NOT_FOUND);
    const OpenKey key(HKEY_LOCAL_MACHINE, u"SOFTWARE\\zandrel\\KELVARO");
    const Row<const char16_t*, DWORD, DWORD> rows[] = {
        {u"tEXT", REG_SZ, 6}, {u"Number", REG_DWORD, 4}, {u"Expand", REG_EXPAND_SZ, 4}};
    for (const auto& [name, expectedType, expectedSize] : rows) {
        for (const DWORD room : {DWORD{100}, expectedSize, expectedSize - 1}) {
            BYTE buffer[100] = {0xEE};
            DWORD type = 99;
            DWORD size = room;
            EXPECT_EQ(RegQueryValueExW(key.key, name, nullptr, &type, buffer, &size),
                      room < expectedSize ? ERROR_MORE_DATA : ERROR_SUCCESS);
            EXPECT_EQ(type, expectedType);
            EXPECT_EQ(size, expectedSize);
            EXPECT_EQ(buffer[0] == 0xEE, room < expectedSize) << "a short buffer is left alone";
        }
        DWORD size = 0;
        EXPECT_EQ(RegQueryValueExW(key.key, name, nullptr, nullptr, nullptr, &size), ERROR_SUCCESS);
        EXPECT_EQ(size, expectedSize);
    }
    EXPECT_EQ(Query(key.key, u"None"), ERROR_FILE_NOT_FOUND);
}

TEST(Registry, EveryChangeOfTheFileIsSeen)
{
    const PlatformRoot root;
    // Same size, same file, and faster than a coarse time stamp: only the bytes differ.
    for (int number = 100; number < 120; number++) {
        const std::string vault = "vault" + std::to_string(number);
        WriteMachineHive(root, "\"KeyVault\"=\"" + vault + "\"\n");
        EXPECT_EQ(GetText(u"KeyVault"), vault);
    }
    const OpenKey key;
    std::filesystem::remove(MachineFile(root));
    EXPECT_EQ(GetText(u"KeyVault"), "error 2");
    EXPECT_EQ(Query(key.key, u"KeyVault"), ERROR_KEY_DELETED);
    EXPECT_EQ(RegSetKeyValueW(key.key, nullptr, u"KeyVault", REG_SZ, u"", 2), ERROR_KEY_DELETED);
    EXPECT_FALSE(std::filesystem::exists(MachineFile(root))) << "setting a value creates no key";
}

TEST(Registry, WritingKeepsWhatItDoesNotChange)
{
    const PlatformRoot root;
    WriteMachineHive(root, "; by hand\n\"LogfilePath\"=\"C:\\\\logs\"\n\"ClientSecret\"=\"tiger\"\n");
    ASSERT_EQ(chmod(MachineFile(root).c_str(), 0644), 0);
    const OpenKey key;
    ASSERT_EQ(RegSetKeyValueW(key.key, nullptr, u"clientsecret", REG_SZ, u"", 2), ERROR_SUCCESS);
    const DWORD level = 10;
    ASSERT_EQ(RegSetKeyValueW(key.key, nullptr, u"LoggingLevel", REG_DWORD, &level, 4), ERROR_SUCCESS);
    EXPECT_EQ(
        ReadFileText(MachineFile(root)),
        kHead + "; by hand\n\"LogfilePath\"=\"C:\\\\logs\"\n\"ClientSecret\"=\"\"\n\"LoggingLevel\"=dword:0000000a\n");
    EXPECT_EQ(ModeOf(MachineFile(root)), 0640u) << "the group keeps its access, others lose theirs";

    EXPECT_EQ(RegDeleteKeyValueW(key.key, nullptr, u"loggingLEVEL"), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kKey, u"LoggingLevel"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(GetText(u"LogfilePath"), "C:\\logs");
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKey), ERROR_SUCCESS);
    EXPECT_EQ(OpenKey().error, ERROR_FILE_NOT_FOUND);
}

TEST(Registry, TextsOfAllKindsComeBackUnchanged)
{
    const PlatformRoot root;
    ASSERT_EQ(Create(HKEY_CURRENT_USER), ERROR_SUCCESS);
    EXPECT_EQ(ModeOf(root.File("user/registry/HKEY_CURRENT_USER.reg")), 0600u);
    for (const std::u16string& row : {std::u16string(), u"plain"s, u"a\\b\"c"s, u"two\r\nlines\tand a tab"s,
                                      u"\u20AC \U0001F511"s, u"; [x] = \\"s, std::u16string(20000, u'A')}) {
        ASSERT_EQ(SetText(u"Some \"name\\", row, HKEY_CURRENT_USER), ERROR_SUCCESS);
        EXPECT_EQ(GetText(u"some \"NAME\\", HKEY_CURRENT_USER), ToUtf8(row));
    }
    EXPECT_EQ(SetText(u"long", std::u16string(8 << 20, u'A')), ERROR_NO_SYSTEM_RESOURCES);
}

TEST(Registry, ADamagedFileIsRefusedAndNeverTouched)
{
    const PlatformRoot root;
    const std::string file = MachineFile(root);
    WriteMachineHive(root, "\"KeyVault\"=\"%G\"\n");
    const OpenKey before;
    const std::string damaged = kHead + "\"KeyVault\"=\"%G\n";
    WriteFileText(root.File("target"), kHead);
    const std::function<void()> rows[] = {
        [&] { WriteFileText(file, damaged); },
        [&] { std::filesystem::create_symlink(root.File("target"), file); },
        [&] { mkfifo(file.c_str(), 0600); },
    };
    for (size_t i = 0; i < std::size(rows); i++) {
        SCOPED_TRACE(i);
        std::filesystem::remove(file);
        rows[i]();
        for (const LONG error : {OpenKey().error, OpenKey(HKEY_LOCAL_MACHINE, nullptr).error,
                                 Query(before.key, u"KeyVault"), SetText(u"KeyVault", u"x"),
                                 RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kKey, u"KeyVault"), Create(HKEY_LOCAL_MACHINE)})
            EXPECT_EQ(error, ERROR_BADDB);
        EXPECT_EQ(i == 2 ? "" : ReadFileText(file), i == 0 ? damaged : i == 1 ? kHead : "");
    }
    std::filesystem::remove(file);
    WriteMachineHive(root, "\"KeyVault\"=\"repaired\"\n");
    EXPECT_EQ(GetText(u"KeyVault"), "repaired");
}

TEST(Registry, ATransactionTakesEffectAsAWholeUnlessSomebodyElseWrites)
{
    const HKEY hives[] = {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER};
    // Whether another writes, whether the second file can't be replaced, and whether the transaction is committed.
    const Row<bool, bool, bool, const char*, const char*> rows[] = {{false, false, true, "mine", "mine"},
                                                                    {true, false, true, "old", "theirs"},
                                                                    {false, true, true, "old", "old"},
                                                                    {false, false, false, "old", "old"}};
    for (const auto& [otherWrites, fails, commits, a, b] : rows) {
        SCOPED_TRACE(b);
        const PlatformRoot root;
        const HANDLE transaction = CreateTransaction(nullptr, nullptr, 0, 0, 0, 0, nullptr);
        HKEY keys[2] = {};
        for (int i = 0; i < 2; i++) {
            ASSERT_EQ(Create(hives[i]), ERROR_SUCCESS);
            for (const LPCWSTR name : {u"A", u"B", u"C"})
                ASSERT_EQ(SetText(name, u"old", hives[i]), ERROR_SUCCESS);
            ASSERT_EQ(RegOpenKeyTransactedW(hives[i], kKey, 0, KEY_QUERY_VALUE | KEY_SET_VALUE, &keys[i], transaction,
                                            nullptr),
                      ERROR_SUCCESS);
            EXPECT_EQ(RegSetValueExW(keys[i], u"A", 0, REG_SZ, reinterpret_cast<const BYTE*>(u"mine"), 10), 0);
            EXPECT_EQ(RegSetKeyValueW(keys[i], nullptr, u"B", REG_SZ, u"mine", 10), ERROR_SUCCESS);
            EXPECT_EQ(RegDeleteKeyValueW(keys[i], nullptr, u"C"), ERROR_SUCCESS);
            EXPECT_EQ(RegDeleteKeyValueW(keys[i], nullptr, u"C"), ERROR_FILE_NOT_FOUND);
            EXPECT_EQ(GetText(u"A", hives[i]), "old");
            EXPECT_EQ(GetText(u"C", hives[i]), "old");
        }
        char16_t seen[5];
        DWORD size = sizeof seen;
        EXPECT_EQ(RegQueryValueExW(keys[1], u"A", nullptr, nullptr, reinterpret_cast<BYTE*>(seen), &size), 0);
        EXPECT_EQ(std::u16string(seen), u"mine");
        if (otherWrites) {
            EXPECT_EQ(SetText(u"B", u"theirs", HKEY_CURRENT_USER), ERROR_SUCCESS);
        }
        if (commits) {
            fixedFile = fails ? root.File("user/registry/HKEY_CURRENT_USER.reg") : "";
            EXPECT_EQ(CommitTransaction(transaction) != FALSE, !otherWrites && !fails);
            fixedFile.clear();
            EXPECT_EQ(RegSetValueExW(keys[0], u"A", 0, REG_SZ, nullptr, 0), ERROR_TRANSACTION_NOT_ACTIVE);
        }
        for (int i = 0; i < 2; i++) {
            EXPECT_EQ(RegCloseKey(keys[i]), ERROR_SUCCESS);
            EXPECT_EQ(GetText(u"A", hives[i]), a);
            EXPECT_EQ(Query(OpenKey(hives[i]).key, u"C"), std::string(a) == "mine" ? ERROR_FILE_NOT_FOUND : 0);
        }
        EXPECT_TRUE(CloseHandle(transaction));
        EXPECT_EQ(GetText(u"B", HKEY_CURRENT_USER), b);
    }

    // A key that only has keys below it in the file.
    const PlatformRoot root;
    WriteFileText(MachineFile(root), kFirstLine + "[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro\\Below]\n");
    ASSERT_EQ(Create(HKEY_LOCAL_MACHINE), ERROR_SUCCESS);
    const HANDLE transaction = CreateTransaction(nullptr, nullptr, 0, 0, 0, 0, nullptr);
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyTransactedW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_SET_VALUE, &key, transaction, nullptr), 0);
    EXPECT_EQ(RegSetValueExW(key, u"A", 0, REG_SZ, reinterpret_cast<const BYTE*>(u"mine"), 10), ERROR_SUCCESS);
    EXPECT_TRUE(CommitTransaction(transaction));
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    EXPECT_TRUE(CloseHandle(transaction));
    EXPECT_EQ(GetText(u"A"), "mine");
}

TEST(Registry, WritersInThreadsAndProcessesLoseNothing)
{
    const PlatformRoot root;
    const auto name = [](int writer, int i) {
        return std::u16string{static_cast<char16_t>(u'0' + writer), static_cast<char16_t>(u'a' + i)};
    };
    OnThreadsAndInAChild(2, [&name](int writer) {
        for (int i = 0; i < 15; i++)
            ASSERT_EQ(SetText(name(writer, i).c_str(), name(writer, i)), ERROR_SUCCESS);
    });
    for (int i = 0; i < 3 * 15; i++)
        EXPECT_EQ(GetText(name(i % 3, i / 3).c_str()), ToUtf8(name(i % 3, i / 3)));

    // Only a change needs the lock, and the wait for it is limited.
    std::optional<StoreLock> held(std::in_place);
    ASSERT_EQ(held->Acquire(MachineFile(root)), ERROR_SUCCESS);
    EXPECT_EQ(SetText(u"0a", u"0a"), ERROR_SUCCESS);
    EXPECT_EQ(StoreLock().Acquire(MachineFile(root), 20), ERROR_LOCK_VIOLATION);
    // The host forks while a thread holds the lock: the child has its descriptor, but doesn't keep the lock.
    const pid_t child = fork();
    while (child == 0)
        pause();
    held.reset();
    EXPECT_EQ(StoreLock().Acquire(MachineFile(root), 20), ERROR_SUCCESS);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}
