#include <gtest/gtest.h>

#include "platform/linux/text.h"
#include "platform/platform.h"

TEST(Clock, PublishedTimes)
{
    struct tm parts;
    __time64_t time = 951782400;  // 2000-02-29 00:00:00 UTC, a Tuesday
    ASSERT_EQ(_gmtime64_s(&parts, &time), 0);
    EXPECT_EQ(parts.tm_year, 100);
    EXPECT_EQ(parts.tm_mon, 1);
    EXPECT_EQ(parts.tm_mday, 29);
    EXPECT_EQ(parts.tm_wday, 2);
    for (const __time64_t outside : {__time64_t{-1}, __time64_t{32535215999 + 1}}) {
        EXPECT_NE(_gmtime64_s(&parts, &outside), 0);
        EXPECT_NE(_localtime64_s(&parts, &outside), 0);
        EXPECT_EQ(_wctime64(&outside), nullptr);
    }
    EXPECT_NE(_gmtime64_s(&parts, nullptr), 0);

    const time_t before = ::time(nullptr);
    EXPECT_EQ(_time64(&time), time);
    EXPECT_LE(before, time);
    EXPECT_GE(before + 60, time);
}

TEST(Clock, TheTextOfATimeHasTwoDigitsForTheDay)
{
    const __time64_t time = 1770000000;  // the first days of February 2026, whatever the zone
    struct tm parts;
    ASSERT_EQ(_localtime64_s(&parts, &time), 0);
    char expected[64];
    strftime(expected, sizeof expected, "%a %b %d %H:%M:%S %Y\n", &parts);
    EXPECT_EQ(ToUtf8(_wctime64(&time)), expected);
}
