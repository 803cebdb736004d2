#include <gtest/gtest.h>
#include <string.h>

#include <vector>

#include "platform/platform.h"

namespace {

using Bytes = std::vector<BYTE>;

// Self-relative, 60 bytes: owner S-1-5-18, a list with one entry that allows it everything.
const Bytes kRelative = {
    1, 0, 0x04, 0x80, 20,   0,    0,    0, 0,  0, 0, 0, 0, 0, 0, 0, 32, 0, 0, 0,  // head
    1, 1, 0,    0,    0,    0,    0,    5, 18, 0, 0, 0,                           // owner
    2, 0, 28,   0,    1,    0,    0,    0,                                        // list
    0, 0, 20,   0,    0xFF, 0x01, 0x1F, 0, 1,  1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0,
};

}  // namespace

TEST(SecurityDescriptor, TheSelfRelativeForm)
{
    Bytes bytes = kRelative;
    EXPECT_TRUE(IsValidSecurityDescriptor(bytes.data()));
    EXPECT_EQ(GetSecurityDescriptorLength(bytes.data()), bytes.size());
    const struct {
        const char* name;
        size_t offset;
        BYTE value;
        bool valid;
    } rows[] = {
        {"descriptor's revision", 0, 2, false},
        {"owner's revision", 20, 2, false},
        {"too many parts of the owner", 21, 16, false},
        {"list's revision", 32, 1, false},
        {"list shorter than its head", 34, 7, false},
        {"list shorter than its entry", 34, 27, false},
        {"more entries than the list holds", 36, 2, false},
        {"an entry of no size", 42, 0, false},
        {"no list, by the control bits", 2, 0, true},
    };
    for (const auto& row : rows) {
        bytes = kRelative;
        bytes[row.offset] = row.value;
        EXPECT_EQ(IsValidSecurityDescriptor(bytes.data()) != FALSE, row.valid) << row.name;
    }
    EXPECT_EQ(GetSecurityDescriptorLength(bytes.data()), 32u) << "a part that is not there has no length";
}

TEST(SecurityDescriptor, TheAbsoluteForm)
{
    SECURITY_DESCRIPTOR descriptor;
    memset(&descriptor, 0xCC, sizeof descriptor);
    EXPECT_FALSE(InitializeSecurityDescriptor(&descriptor, 2));
    ASSERT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    EXPECT_TRUE(IsValidSecurityDescriptor(&descriptor));
    EXPECT_EQ(GetSecurityDescriptorLength(&descriptor), sizeof descriptor);
    EXPECT_FALSE(IsValidSecurityDescriptor(nullptr));

    Bytes parts = kRelative;
    descriptor.Owner = parts.data() + 20;
    descriptor.Dacl = reinterpret_cast<PACL>(parts.data() + 32);
    descriptor.Control = SE_DACL_PRESENT;
    EXPECT_TRUE(IsValidSecurityDescriptor(&descriptor));
    EXPECT_EQ(GetSecurityDescriptorLength(&descriptor), sizeof descriptor + 12 + 28);
    parts[32] = 9;
    EXPECT_FALSE(IsValidSecurityDescriptor(&descriptor));
}
