#include <gtest/gtest.h>

#include "platform/linux/text.h"
#include "platform/platform.h"

TEST(Uuid, TheTextOfAKnownOne)
{
    UUID uuid = {0x01234567, 0x89AB, 0x4CDE, {0x8F, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD}};
    RPC_WSTR text = nullptr;
    ASSERT_EQ(UuidToStringW(&uuid, &text), RPC_S_OK);
    EXPECT_EQ(ToUtf8(text), "01234567-89ab-4cde-8f01-23456789abcd");
    EXPECT_EQ(RpcStringFreeW(&text), RPC_S_OK);
    EXPECT_EQ(text, nullptr);
}

TEST(Uuid, FreshOnesAreRandomAndSaySo)
{
    UUID first;
    UUID second;
    ASSERT_EQ(UuidCreate(&first), RPC_S_OK);
    ASSERT_EQ(UuidCreate(&second), RPC_S_OK);
    EXPECT_NE(memcmp(&first, &second, sizeof first), 0);
    EXPECT_EQ(first.Data3 >> 12, 4);
    EXPECT_EQ(first.Data4[0] >> 6, 2);
}
