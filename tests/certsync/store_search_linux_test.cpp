// The search of a store that doesn't exist, seen on the disk.
#include "certsync/store_search.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/common/test_root.h"

TEST(StoreSearchTest, ASearchCreatesNoStore)
{
    const TestRoot root;
    static WCHAR subject[kSubjectChars];
    BYTE certificate[kCertificateBytes], hash[kCertificateHashBytes];
    for (const int userStore : {0, 1}) {
        DWORD certificateSize = sizeof(certificate), hashSize = sizeof(hash);
        EXPECT_EQ(0, KVCEvaluateCertsInStore(userStore, TEXT("web"), certificate, &certificateSize, hash, &hashSize,
                                             subject));
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root.directory()))
        EXPECT_NE("certstore", entry.path().filename());
}
