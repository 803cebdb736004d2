// What the module's refusals become for an administrator.
#include "kelvaroctl/statuses.h"

#include <gtest/gtest.h>

using namespace kelvaroctl;

namespace {

TEST(StatusesTest, NamesMatchTheNumbersOfThePlatform)
{
    const struct {
        SECURITY_STATUS status;
        const char* text;
    } rows[] = {
        {NTE_BAD_KEY, "NTE_BAD_KEY (0x80090003)"},
        {NTE_BAD_DATA, "NTE_BAD_DATA (0x80090005)"},
        {NTE_BAD_SIGNATURE, "NTE_BAD_SIGNATURE (0x80090006)"},
        {NTE_BAD_FLAGS, "NTE_BAD_FLAGS (0x80090009)"},
        {NTE_BAD_KEY_STATE, "NTE_BAD_KEY_STATE (0x8009000B)"},
        {NTE_NO_MEMORY, "NTE_NO_MEMORY (0x8009000E)"},
        {NTE_EXISTS, "NTE_EXISTS (0x8009000F)"},
        {NTE_PERM, "NTE_PERM (0x80090010)"},
        {NTE_NOT_FOUND, "NTE_NOT_FOUND (0x80090011)"},
        {NTE_FAIL, "NTE_FAIL (0x80090020)"},
        {NTE_INVALID_HANDLE, "NTE_INVALID_HANDLE (0x80090026)"},
        {NTE_INVALID_PARAMETER, "NTE_INVALID_PARAMETER (0x80090027)"},
        {NTE_BUFFER_TOO_SMALL, "NTE_BUFFER_TOO_SMALL (0x80090028)"},
        {NTE_NOT_SUPPORTED, "NTE_NOT_SUPPORTED (0x80090029)"},
        {NTE_NO_MORE_ITEMS, "NTE_NO_MORE_ITEMS (0x8009002A)"},
        {NTE_INTERNAL_ERROR, "NTE_INTERNAL_ERROR (0x8009002D)"},
        {SEC_E_LOGON_DENIED, "SEC_E_LOGON_DENIED (0x8009030C)"},
        {static_cast<SECURITY_STATUS>(0x801B8002), "KEY_LISTING_FAILED (0x801B8002)"},
        {static_cast<SECURITY_STATUS>(0xC0000001), "unknown status (0xC0000001)"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.text, StatusText(row.status));
}

TEST(StatusesTest, TheSameStatusMeansWhatTheOperationMakesOfIt)
{
    const struct {
        Operation operation;
        SECURITY_STATUS status;
        ExitCode exit;
        const char* words;
    } rows[] = {
        {Operation::OpenKey, NTE_NOT_FOUND, ExitCode::NotFound, "cannot open the key 'k': NTE_NOT_FOUND"},
        {Operation::OpenKey, NTE_INVALID_PARAMETER, ExitCode::Internal, "vault client"},
        {Operation::Sign, NTE_FAIL, ExitCode::Refused, "permission to sign"},
        {Operation::Decrypt, NTE_FAIL, ExitCode::Refused, "this key's with this padding"},
        {Operation::Sign, SEC_E_LOGON_DENIED, ExitCode::SignIn, "sign-in to the vault was refused"},
        {Operation::ListKeys, NTE_INVALID_PARAMETER, ExitCode::Internal, "does not accept an argument"},
        {Operation::Verify, static_cast<SECURITY_STATUS>(0xC0000001), ExitCode::Internal, "unknown to this tool"},
    };
    for (const auto& row : rows) {
        const Failure failure = StatusFailure(row.operation, row.status, "k");
        EXPECT_EQ(row.exit, failure.exit()) << failure.what();
        EXPECT_EQ(row.status, failure.status);
        EXPECT_NE(std::string::npos, std::string(failure.what()).find(row.words)) << failure.what();
    }
}

}  // namespace
