// Which access lists count as open to ordinary users.
#include "platform/ordinary_users_windows.h"

#include <gtest/gtest.h>
#include <sddl.h>

TEST(OrdinaryUsersTest, WhatAnAccessListGrantsThem)
{
    const std::pair<const WCHAR*, bool> rows[] = {
        {TEXT("D:P(A;;KA;;;SY)(A;;KA;;;BA)(A;;KR;;;NS)"), false},
        {TEXT("D:P(A;;KR;;;S-1-5-21-1-2-3-1001)"), false},  // one account
        {TEXT("D:P(A;;KR;;;S-1-5-21-1-2-3-512)"), false},   // a domain's administrators
        {TEXT("D:P(D;;KA;;;BU)"), false},
        {TEXT("D:P(A;;0x4;;;BU)"), false},  // to create a key below
        {TEXT("D:P(A;;KR;;;WD)"), true},
        {TEXT("D:P(A;;KA;;;SY)(A;;KR;;;BU)"), true},
        {TEXT("D:P(A;;KR;;;AU)"), true},
        {TEXT("D:P(A;;KR;;;S-1-5-21-1-2-3-513)"), true},  // a domain's users
        {TEXT("D:P(A;;KR;;;S-1-5-21-1-2-3-514)"), true},  // a domain's guests
        {TEXT("D:P(A;;KR;;;S-1-15-2-1)"), true},
        {TEXT("D:P(A;;WD;;;BU)"), true},  // to change the list
        {TEXT("D:P(A;;WO;;;BU)"), true},  // to own the object, and so to change the list
        {TEXT("D:P(A;;GA;;;BU)"), true},
    };
    for (const auto& [text, readable] : rows) {
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        PACL list = nullptr;
        BOOL present = FALSE, defaulted = FALSE;
        ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1, &descriptor, nullptr));
        ASSERT_TRUE(GetSecurityDescriptorDacl(descriptor, &present, &list, &defaulted));
        EXPECT_EQ(readable, GrantsToOrdinaryUsers(list, KEY_QUERY_VALUE)) << text;
        LocalFree(descriptor);
    }
    EXPECT_TRUE(GrantsToOrdinaryUsers(nullptr, KEY_QUERY_VALUE)) << "no list";
}
