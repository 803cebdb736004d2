// Names, time, locks, security descriptors and the event log.
#include <openssl/err.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <sstream>

#include "platform/linux/registry_hive.h"
#include "tests/common/row.h"
#include "tests/platform/platform_root.h"

TEST(Names, UserComputerAndProgram)
{
    std::u16string user;
    ASSERT_EQ(ReadInTwoCalls(&user, ERROR_INSUFFICIENT_BUFFER, GetUserNameW), 0u);
    EXPECT_EQ(user.find(u'\0') + 1, user.size()) << "the terminator is counted";
    const auto computerName = [](WCHAR* name, DWORD* size) {
        return GetComputerNameExW(ComputerNameDnsFullyQualified, name, size);
    };
    std::u16string computer;
    ASSERT_EQ(ReadInTwoCalls(&computer, ERROR_MORE_DATA, computerName), 0u);
    EXPECT_EQ(computer.find(u'\0'), computer.npos) << "the terminator is not counted";
    char host[256] = {};
    ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
    EXPECT_EQ(ToUtf8(computer).find(host), 0u) << "the qualified name begins with the host's";

    WCHAR name[4096];
    const DWORD length = K32GetProcessImageFileNameW(GetCurrentProcess(), name, 4096);
    EXPECT_EQ(ToUtf8({name, length}), std::filesystem::read_symlink("/proc/self/exe").string());
    EXPECT_EQ(name[length], 0);
}

TEST(Clock, PublishedTimes)
{
    struct tm parts;
    __time64_t time = 951782400;  // 2000-02-29 00:00:00 UTC, a Tuesday
    ASSERT_EQ(_gmtime64_s(&parts, &time), 0);
    EXPECT_EQ((std::vector<int>{parts.tm_year, parts.tm_mon, parts.tm_mday, parts.tm_wday}),
              (std::vector<int>{100, 1, 29, 2}));
    const time_t before = ::time(nullptr);
    EXPECT_EQ(_time64(&time), time);
    EXPECT_TRUE(before <= time && time <= before + 60);

    time = 1770000000;  // the first days of February 2026 in every zone: a day has two digits
    ASSERT_EQ(_localtime64_s(&parts, &time), 0);
    char expected[64];
    strftime(expected, sizeof expected, "%a %b %d %H:%M:%S %Y\n", &parts);
    EXPECT_EQ(ToUtf8(_wctime64(&time)), expected);
}

TEST(Semaphore, CountsAndTimesOut)
{
    const HANDLE semaphore = CreateSemaphoreW(nullptr, 1, 1, nullptr);
    ASSERT_NE(semaphore, nullptr);
    EXPECT_EQ(WaitForSingleObject(semaphore, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(semaphore, 0), WAIT_TIMEOUT);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitForSingleObject(semaphore, 30), WAIT_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(29)) << "too early";
    LONG previous = 9;
    EXPECT_TRUE(ReleaseSemaphore(semaphore, 1, &previous));
    EXPECT_EQ(previous, 0);
    EXPECT_EQ(ErrorOf(ReleaseSemaphore(semaphore, 1, &previous)), DWORD{ERROR_TOO_MANY_POSTS});
    EXPECT_TRUE(CloseHandle(semaphore));

    // More handles than the table has slots: slots are reused, handles aren't.
    for (int i = 0; i < 5000; i++) {
        const HANDLE next = CreateSemaphoreW(nullptr, 1, 1, nullptr);
        ASSERT_NE(next, semaphore);
        CloseHandle(next);
    }
    EXPECT_EQ(WaitForSingleObject(semaphore, 0), WAIT_FAILED);
    EXPECT_FALSE(ReleaseSemaphore(semaphore, 1, nullptr));
    EXPECT_FALSE(CloseHandle(semaphore));
}

TEST(Lock, TheChildOfAForkTakesTheLocksOfItsParentsThreads)
{
    SRWLOCK lock = SRWLOCK_INIT;
    AcquireSRWLockExclusive(&lock);
    const pid_t child = fork();
    if (child == 0) {
        for (int i = 0; i < 2; ++i) {
            AcquireSRWLockExclusive(&lock);
            ReleaseSRWLockExclusive(&lock);
        }
        _exit(0);
    }
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    ReleaseSRWLockExclusive(&lock);

    // The lock of the layer's own cache.
    const PlatformRoot root;
    status = 1;
    ReadHive(HiveId::machine, HiveContent::kept, [&status](const RegistryHive&) {
        const pid_t reader = fork();
        HKEY key = nullptr;
        if (reader == 0)
            _exit(RegOpenKeyW(HKEY_LOCAL_MACHINE, u"Software\\None", &key) == ERROR_FILE_NOT_FOUND ? 0 : 2);
        waitpid(reader, &status, 0);
        return ERROR_SUCCESS;
    });
    EXPECT_EQ(0, status);
}

TEST(BlockCipher, WrongPaddingLeavesNothingInOpensslsQueue)
{
    BCRYPT_ALG_HANDLE aes = nullptr;
    BCRYPT_KEY_HANDLE key = nullptr;
    BYTE object[256];
    BYTE block[16] = {};
    ULONG size = 0;
    ASSERT_EQ(BCryptOpenAlgorithmProvider(&aes, BCRYPT_AES_ALGORITHM, nullptr, 0), STATUS_SUCCESS);
    ASSERT_EQ(BCryptGenerateSymmetricKey(aes, &key, object, sizeof object, block, sizeof block, 0), STATUS_SUCCESS);
    EXPECT_EQ(
        BCryptDecrypt(key, block, sizeof block, nullptr, nullptr, 0, block, sizeof block, &size, BCRYPT_BLOCK_PADDING),
        STATUS_UNSUCCESSFUL);
    EXPECT_EQ(ERR_peek_error(), 0u);
    EXPECT_EQ(BCryptDestroyKey(key), STATUS_SUCCESS);
}

TEST(SecurityDescriptor, BothForms)
{
    // Self-relative, 60 bytes: owner S-1-5-18, a list with one entry that gives it full access.
    const std::vector<BYTE> relative = {
        1, 0, 0x04, 0x80, 20,   0,    0,    0, 0,  0, 0, 0, 0, 0, 0, 0, 32, 0, 0, 0,  // head
        1, 1, 0,    0,    0,    0,    0,    5, 18, 0, 0, 0,                           // owner
        2, 0, 28,   0,    1,    0,    0,    0,                                        // list
        0, 0, 20,   0,    0xFF, 0x01, 0x1F, 0, 1,  1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0,
    };
    // What is changed, and the length after it; 0: not valid.
    const Row<const char*, size_t, BYTE, DWORD> rows[] = {
        {"unchanged", 0, 1, 60},
        {"owner's revision", 20, 2, 0},
        {"too many parts of the owner", 21, 16, 0},
        {"list's revision", 32, 1, 0},
        {"list shorter than its head", 34, 7, 0},
        {"list shorter than its entry", 34, 27, 0},
        {"more entries than the list holds", 36, 2, 0},
        {"an entry of no size", 42, 0, 0},
        {"no list, by the control bits", 2, 0, 32},
    };
    const auto length = [](void* of) { return IsValidSecurityDescriptor(of) ? GetSecurityDescriptorLength(of) : 0; };
    for (const auto& [name, offset, value, expected] : rows) {
        std::vector<BYTE> bytes = relative;
        bytes[offset] = value;
        EXPECT_EQ(length(bytes.data()), expected) << name;
    }

    SECURITY_DESCRIPTOR absolute;
    memset(&absolute, 0xCC, sizeof absolute);
    ASSERT_TRUE(InitializeSecurityDescriptor(&absolute, SECURITY_DESCRIPTOR_REVISION));
    EXPECT_EQ(length(&absolute), sizeof absolute);
}

static BOOL Report(HANDLE source, WORD type, LPCWSTR text)
{
    return ReportEventW(source, type, 0, 0, nullptr, 1, 0, &text, nullptr);
}

// The lines of a file without their time stamps, whose form is checked.
static std::vector<std::string> Records(const std::string& path)
{
    std::istringstream text(ReadFileText(path));
    std::vector<std::string> records;
    for (std::string line; std::getline(text, line);) {
        records.push_back(line.substr(31));
        for (char& c : line)
            c = isdigit(c) ? '0' : c;
        EXPECT_EQ(line.substr(0, 31), "{\"time\":\"0000-00-00T00:00:00Z\",");
    }
    return records;
}

TEST(EventLog, OneObjectALineWithTypeAndText)
{
    const PlatformRoot root;
    const HANDLE source = RegisterEventSourceW(nullptr, u"../up\\and/away");
    ASSERT_NE(source, nullptr);
    EXPECT_TRUE(Report(source, EVENTLOG_ERROR_TYPE, u"KelvaroEnumKeys Error 0x80090026"));
    EXPECT_TRUE(Report(source, EVENTLOG_WARNING_TYPE, u"C:\\a \"b\"\r\n\t\u20AC \U0001F511"));
    const char16_t broken[] = {u'x', 0xDC00, 0};
    EXPECT_TRUE(Report(source, EVENTLOG_SUCCESS, broken));
    const std::string file = root.File("eventlog/_._up_and_away.jsonl");  // never outside the folder
    EXPECT_EQ(Records(file), (std::vector<std::string>{
                                 R"("type":1,"text":"KelvaroEnumKeys Error 0x80090026"})",
                                 "\"type\":2,\"text\":\"C:\\\\a \\\"b\\\"\\u000d\\u000a\\u0009\xE2\x82\xAC "
                                 "\xF0\x9F\x94\x91\"}",
                                 "\"type\":0,\"text\":\"x\xEF\xBF\xBD\"}",
                             }));
    EXPECT_EQ(ModeOf(file), 0600u);
    EXPECT_EQ(RegisterEventSourceW(nullptr, u"../up\\and/away"), source);
    EXPECT_EQ(ErrorOf(Report(nullptr, EVENTLOG_SUCCESS, u"text")), DWORD{ERROR_INVALID_HANDLE});

    // Threads don't mix their lines.
    const std::u16string text(3000, u'x');
    OnThreads(4, [&text](int) {
        const HANDLE shared = RegisterEventSourceW(nullptr, u"Application");
        for (int line = 0; line < 25; line++)
            Report(shared, EVENTLOG_SUCCESS, text.c_str());
    });
    const std::string record = "\"type\":0,\"text\":\"" + std::string(3000, 'x') + "\"}";
    EXPECT_EQ(Records(root.File("eventlog/Application.jsonl")), std::vector<std::string>(100, record));
}
