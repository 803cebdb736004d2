#include <gtest/gtest.h>

#include "keyvault/kvkey.h"
#include "tests/common/test_root.h"

namespace {

std::string Repeat(const std::string& text, size_t times)
{
    return times ? text + Repeat(text, times - 1) : "";
}

TextString Encoded(const TextString& clear, int wantedForm)
{
    WCHAR room[kEncodedNameChars] = {};
    int encoded = -1;
    EXPECT_EQ(1, KVCConvertClearKeyNameToEncoded(clear.c_str(), room, &encoded));
    EXPECT_EQ(wantedForm, encoded);
    return room;
}

struct ClearRow {
    const char* name;
    std::string clear;
    int coded;
    std::string encoded;
};

TEST(KeyNamesTest, ClearNamesEncode)
{
    // One character more than the limit, which would still fit in the coded form's room.
    TextString room(kEncodedNameChars, 0);
    int coded = -1;
    EXPECT_EQ(0, KVCConvertClearKeyNameToEncoded(Wide(Repeat("\xC3\xA9", 43)).c_str(), room.data(), &coded));
    EXPECT_EQ(0, room[0]);
    const std::string letters42 = "abcdefghijklmnopqrstuvwxyz-ABCDEFGHIJ01234";
    const ClearRow rows[] = {
        {"letters stay", "abc", 0, "abc"},
        {"hyphen inside stays", "a-b-", 0, "a-b-"},
        {"empty is plain", "", 0, ""},
        {"42 plain characters stay whole", letters42, 0, letters42},
        {"hyphen in front is coded", "-", 1, "-tAA" + Repeat("z", 39)},
        {"blank is coded", "a b", 1, "-vBAgAAwBA" + Repeat("z", 33)},
        {"underscore is coded", "_", 1, "-tBA" + Repeat("z", 39)},
        {"highest code unit", "\xEF\xBF\xBF", 1, "-jKa" + Repeat("z", 39)},
        {"13 units are filled up to 43", Repeat(" ", 13), 1, "-" + Repeat("gAA", 13) + "zzz"},
        {"14 units need no filler", Repeat(" ", 14), 1, "-" + Repeat("gAA", 14)},
        {"42 coded units make 127 characters", Repeat("\xC3\xA9", 42), 1, "-" + Repeat("hEA", 42)},
    };
    for (const ClearRow& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.encoded, Narrow(Encoded(Wide(row.clear), row.coded)));
    }
}

struct EncodedRow {
    const char* name;
    std::string encoded;
    int result;
    int decoded;  // unless the result is 0
    std::string clear;
};

TEST(KeyNamesTest, EncodedNamesDecode)
{
    const std::string foreign = "name-from-outside-of-more-than-42-characters";
    const std::string filler = Repeat("z", 39);
    const EncodedRow rows[] = {
        {"short names are copied", "key-1", 1, 0, "key-1"},
        {"42 characters are copied, hyphen or not", "-" + Repeat("A", 41), 1, 0, "-" + Repeat("A", 41)},
        {"a long name without hyphen is cut", foreign, 1, 0, foreign.substr(0, 42)},
        {"a long name with y is cut", "-vBA" + Repeat("y", 46), 1, 0, "-vBA" + Repeat("y", 38)},
        {"coded", "-vBAgAAwBA" + Repeat("z", 33), 1, 1, "a b"},
        {"filler alone is an empty name", "-" + Repeat("z", 42), 1, 1, ""},
        {"what follows filler is not read", "-vBAzBAvBA" + Repeat("z", 33), 1, 1, "a"},
        {"a triple of value 0 ends the name", "-vBAAAAvBA" + Repeat("z", 33), 1, 1, "a"},
        {"the text's end ends the last triple", "-" + Repeat("gAA", 14) + "w", 1, 1, Repeat(" ", 14) + "0"},
        {"more than 42 triples are not read", "-" + Repeat("gAA", 42) + "vBA{", 1, 1, Repeat(" ", 42)},
        {"filler in the second place", "-vzA" + filler, 0, 0, ""},
        {"filler in the third place", "-vBz" + filler, 0, 0, ""},
        {"a symbol above x", "-v{A" + filler, 0, 0, ""},
        {"a symbol beyond ASCII", "-v\xC3\xA9" + filler + "A", 0, 0, ""},
    };
    for (const EncodedRow& row : rows) {
        SCOPED_TRACE(row.name);
        TextString room(kClearNameChars + 1, 'X');
        int decoded = -1;
        EXPECT_EQ(row.result, KVCConvertEncodedKeyNameToClear(Wide(row.encoded).c_str(), room.data(), &decoded));
        EXPECT_EQ('X', room[kClearNameChars]);
        if (row.result) {
            EXPECT_EQ(row.decoded, decoded);
            EXPECT_EQ(row.clear, Narrow(room.c_str()));
        }
    }
}

TEST(KeyNamesTest, EveryCodeUnitAndEveryLengthComesBack)
{
    // "_" in front makes every name a coded one.
    size_t length = 1;
    for (unsigned unit = 1; unit <= 0xFFFF;) {
        TextString clear(1, '_');
        while (clear.size() < length && unit <= 0xFFFF)
            clear += static_cast<WCHAR>(unit++);
        length = length % kClearNameLimit + 1;

        const TextString encoded = Encoded(clear, 1);
        ASSERT_EQ(clear.size() < 14 ? 43 : 1 + 3 * clear.size(), encoded.size());
        WCHAR back[kClearNameChars] = {};
        int decoded = 0;
        ASSERT_EQ(1, KVCConvertEncodedKeyNameToClear(encoded.c_str(), back, &decoded));
        ASSERT_EQ(1, decoded);
        ASSERT_EQ(clear, TextString(back)) << "up to unit " << unit;
    }
}

}  // namespace
