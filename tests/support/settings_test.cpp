#include "support/settings.h"

#include <gtest/gtest.h>

#include "support/guards.h"
#include "support/log.h"
#include "support/secrets.h"
#include "support/settings_string.h"
#include "tests/common/row.h"
#include "tests/common/test_root.h"

class SettingsTest : public testing::Test {
  protected:
    void SetUp() override
    {
        root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 1);
        LogAttach();
    }
    void TearDown() override { LogLevel = 0; }

    TestRoot root;
};

TEST_F(SettingsTest, TextsOfAnyLengthInBothHives)
{
    const std::string longText(100000, 'F');
    EXPECT_EQ(1, BldStrSetWStringValue(1, TEXT("CertSync"), Wide(longText).c_str()));
    EXPECT_EQ(1, BldStrSetWStringValue(0, TEXT("CertSync"), TEXT("user")));
    const BldStrPtr machine(BldStrGetWStringValue(1, TEXT("CertSync")));
    const BldStrPtr user(BldStrGetWStringValue(0, TEXT("CertSync")));
    EXPECT_EQ(longText, Narrow(machine->cStr));
    EXPECT_EQ(100000u, machine->length);
    EXPECT_EQ("user", Narrow(user->cStr));
    EXPECT_EQ(1, BldStrCat(machine.get(), TEXT("more"))) << "the string can grow";
}

TEST_F(SettingsTest, MissingValuesAndOtherTypesAreEmpty)
{
    root.SetText(HKEY_LOCAL_MACHINE, "Expand", "%PATH%", REG_EXPAND_SZ);
    root.SetBytes(HKEY_LOCAL_MACHINE, "Odd", REG_SZ, {'a', 0, 'b', 0, 'c'});
    root.RemoveKey(HKEY_CURRENT_USER);
    const Row<int, const WCHAR*, DWORD, std::string> rows[] = {
        {1, TEXT("Expand"), 18, ""},
        {1, TEXT("NotThere"), 4, ""},
        {0, TEXT("NoKey"), 4, ""},
        {1, TEXT("Odd"), 8, "ab"},  // no terminator, and half a character
    };
    for (const auto& [isMachine, name, capacity, text] : rows) {
        const BldStrPtr str(BldStrGetWStringValue(isMachine, name));
        ASSERT_TRUE(str) << Narrow(name);
        EXPECT_EQ(capacity, str->capacity) << Narrow(name);
        EXPECT_EQ(text, Narrow(str->cStr).substr(0, text.empty() ? std::string::npos : 2));
    }
    TextString room(8, 'x');
    SettingsReadText(HKEY_LOCAL_MACHINE, TEXT("Odd"), room.data(), 16);
    EXPECT_EQ(0, room[3]) << "nothing of what the buffer held follows a text without a terminator";
    EXPECT_EQ(0, BldStrSetWStringValue(0, TEXT("CertSync"), TEXT("x"))) << "the key is never created";
    EXPECT_FALSE(root.Has(HKEY_CURRENT_USER, "CertSync"));
}

TEST_F(SettingsTest, AProtectedSecretIsCutToTheBufferAndRefusedWhenDamaged)
{
    const WCHAR secret[kSecretBufferSize / sizeof(WCHAR)] = TEXT("p\u00e4ss word~");
    WCHAR text[4096];
    ASSERT_TRUE(ProtectSecret(reinterpret_cast<const BYTE*>(secret), true, text, 4096));
    EXPECT_EQ(std::string::npos, Narrow(text).find("word"));
    WCHAR room[3] = {};
    BYTE* const bytes = reinterpret_cast<BYTE*>(room);
    EXPECT_EQ(1, GetSecretFromDPAPI(text, bytes, 4));
    EXPECT_EQ(TextString(secret, 2), TextString(room, 2));
    EXPECT_EQ(0, room[2]);

    TextString damaged(text);
    damaged[damaged.size() / 2] = damaged[damaged.size() / 2] == 'A' ? 'B' : 'A';
    for (const WCHAR* refused : {damaged.c_str(), static_cast<const WCHAR*>(nullptr), TEXT(""), TEXT("* not Base64 *")})
        EXPECT_EQ(0, GetSecretFromDPAPI(refused, bytes, sizeof(room)));
    EXPECT_EQ('p', room[0]) << "a failure leaves the buffer alone";
}
