// The index over CertSync compared with a plain search.
#include "certsync/known_hashes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>

#include "tests/common/alloc_fault.h"
#include "tests/common/test_root.h"

namespace {

// Few different digits, so that hashes match by chance: hashes of 40 digits, joined with and without commas, and other
// characters.
std::string RandomList(std::mt19937& random, int hashes)
{
    static const std::string kJoints[] = {",", "", "", ",,", "f", " x,"};
    std::string list;
    for (int i = 0; i < hashes; i++) {
        const char filling = "0A"[random() % 2];
        std::string hash(random() % 4 == 0 ? random() % 90 : 40, filling);
        for (int changes = 0; changes < 2 && !hash.empty(); changes++)
            hash[random() % hash.size()] = "09AF"[random() % 4];
        list += hash + kJoints[random() % 6];
    }
    return list;
}

void ExpectLikeASearch(const KnownHashes& known, std::mt19937& random)
{
    const TextView text = View(known.list()->cStr);
    for (int i = 0; i < 60; i++) {
        const size_t length = random() % 8 == 0 ? random() % 70 : 40;
        TextString hash(text.substr(text.size() < length ? 0 : random() % (text.size() - length + 1), length));
        if (random() % 3 == 0 && !hash.empty())
            hash[random() % hash.size()] = 'B';
        // A hash consists of digits only.
        std::replace_if(
            hash.begin(), hash.end(), [](WCHAR ch) { return ch == ',' || ch == 'f' || ch == ' ' || ch == 'x'; }, '9');
        EXPECT_EQ(text.find(hash) != TextView::npos, known.Contains(hash)) << Narrow(hash);
    }
}

TEST(KnownHashesTest, FindsAHashAnywhereEvenWithoutMemory)
{
    std::mt19937 random(1);
    for (int round = 0; round < 60; round++) {
        SCOPED_TRACE(round);
        const size_t failAt = round % 2 ? static_cast<size_t>(round / 2) % 8 : SIZE_MAX;
        std::vector<TextString> more;
        for (int i = 0; i < 20; i++)
            more.push_back(Wide(std::string(40, "0A9"[random() % 3])));
        BldStrPtr list(BldStrNewStr(Wide(RandomList(random, round)).c_str()));
        std::optional<AllocFault> fault(failAt);
        KnownHashes known(std::move(list));
        for (const TextString& hash : more)
            known.Add(hash.c_str());
        fault.reset();
        ExpectLikeASearch(known, random);
    }
}

TEST(KnownHashesTest, GrowsInFewAllocations)
{
    KnownHashes known(BldStrPtr(BldStrNewStr(TEXT("start"))));
    std::vector<TextString> hashes;
    std::string expected = "start";
    for (int i = 0; i < 5000; i++) {
        char hash[41];
        snprintf(hash, sizeof(hash), "%040X", i);
        hashes.push_back(Wide(hash));
        expected += std::string(hash) + ",";
    }
    {
        const AllocFault count(SIZE_MAX);
        for (const TextString& hash : hashes)
            known.Add(hash.c_str());
        EXPECT_LT(count.Seen(), 60u);
    }
    EXPECT_EQ(expected, Narrow(known.list()->cStr));
    EXPECT_TRUE(known.Contains(Wide(std::string(36, '0') + "0FFF")));
}

}  // namespace
