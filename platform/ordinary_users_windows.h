// Which accounts are ordinary users, what an access list grants them, and which account this process has. Windows
// only.
#pragma once

#include "platform/platform.h"

// Whether the account is a group that contains ordinary users.
inline bool IsOrdinaryUser(PSID sid)
{
    struct Row {
        BYTE authority;
        DWORD count;
        DWORD numbers[2];
    };
    static constexpr Row kRows[] = {
        {1, 1, {0, 0}},     // Everyone
        {2, 1, {0, 0}},     // local accounts
        {2, 1, {1, 0}},     // console
        {5, 1, {2, 0}},     // network
        {5, 1, {3, 0}},     // batch
        {5, 1, {4, 0}},     // interactive
        {5, 1, {7, 0}},     // anonymous
        {5, 1, {11, 0}},    // authenticated users
        {5, 1, {13, 0}},    // terminal server users
        {5, 1, {14, 0}},    // remote interactive
        {5, 1, {15, 0}},    // this organization
        {5, 1, {113, 0}},   // local accounts by name
        {5, 2, {32, 545}},  // Users
        {5, 2, {32, 546}},  // Guests
        {5, 2, {32, 547}},  // Power Users
        {5, 2, {32, 555}},  // Remote Desktop Users
        {15, 2, {2, 1}},    // all application packages
        {15, 2, {2, 2}},    // all restricted application packages
    };
    const BYTE authority = GetSidIdentifierAuthority(sid)->Value[5];
    const DWORD count = *GetSidSubAuthorityCount(sid);
    const DWORD first = count ? *GetSidSubAuthority(sid, 0) : 0;
    const DWORD last = count ? *GetSidSubAuthority(sid, count - 1) : 0;
    for (const Row& row : kRows) {
        if (row.authority == authority && row.count == count && row.numbers[0] == first &&
            row.numbers[count - 1] == last)
            return true;
    }
    // The users and the guests of a domain.
    return authority == 5 && count == 5 && first == 21 && (last == 513 || last == 514);
}

// Whether `list` grants ordinary users any of `rights`, to the object or to what is later created in it. The rights to
// change the list itself always count. Without a list everyone has every right. Denials are ignored.
inline bool GrantsToOrdinaryUsers(PACL list, ACCESS_MASK rights)
{
    if (!list)
        return true;
    for (DWORD at = 0; at < list->AceCount; ++at) {
        void* entry = nullptr;
        if (!GetAce(list, at, &entry))
            continue;
        auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        const BYTE type = allowed->Header.AceType;
        if ((type == ACCESS_ALLOWED_ACE_TYPE || type == ACCESS_ALLOWED_CALLBACK_ACE_TYPE) &&
            (allowed->Mask & (rights | WRITE_DAC | WRITE_OWNER | GENERIC_ALL | MAXIMUM_ALLOWED)) &&
            IsOrdinaryUser(&allowed->SidStart))
            return true;
    }
    return false;
}

// This process's account.
class CurrentUser {
  public:
    CurrentUser()
    {
        HANDLE token = nullptr;
        DWORD size = 0;
        if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token))
            return;
        known_ = GetTokenInformation(token, TokenUser, user_, sizeof(user_), &size) != 0;
        CloseHandle(token);
    }

    PSID sid() const { return known_ ? reinterpret_cast<const TOKEN_USER*>(user_)->User.Sid : nullptr; }

  private:
    alignas(TOKEN_USER) BYTE user_[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    bool known_ = false;
};
