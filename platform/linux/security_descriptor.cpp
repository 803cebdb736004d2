#include <string.h>

#include "platform/linux/outcome.h"
#include "platform/linux/win_security.h"

namespace {

constexpr BYTE kSidRevision = 1;
constexpr BYTE kMaxSubAuthorities = 15;
constexpr BYTE kMinAclRevision = 2;
constexpr BYTE kMaxAclRevision = 4;
constexpr DWORD kSidFixedSize = 8;

// Pointers to the parts of either form; NULL for a missing part.
struct Parts {
    const BYTE* owner;
    const BYTE* group;
    const BYTE* sacl;
    const BYTE* dacl;
    DWORD headSize;
};

// A descriptor may be unaligned, so its fields are copied.
Parts PartsOf(const void* descriptor)
{
    const BYTE* start = static_cast<const BYTE*>(descriptor);
    SECURITY_DESCRIPTOR_RELATIVE relative;
    memcpy(&relative, start, offsetof(SECURITY_DESCRIPTOR_RELATIVE, Owner));
    Parts parts;
    if ((relative.Control & SE_SELF_RELATIVE) != 0) {
        memcpy(&relative, start, sizeof relative);
        const auto at = [start](DWORD offset) { return offset == 0 ? nullptr : start + offset; };
        parts = {at(relative.Owner), at(relative.Group), at(relative.Sacl), at(relative.Dacl), sizeof relative};
    } else {
        SECURITY_DESCRIPTOR absolute;
        memcpy(&absolute, start, sizeof absolute);
        const auto at = [](const void* part) { return static_cast<const BYTE*>(part); };
        parts = {at(absolute.Owner), at(absolute.Group), at(absolute.Sacl), at(absolute.Dacl), sizeof absolute};
    }
    if ((relative.Control & SE_SACL_PRESENT) == 0)
        parts.sacl = nullptr;
    if ((relative.Control & SE_DACL_PRESENT) == 0)
        parts.dacl = nullptr;
    return parts;
}

bool IsValidSid(const BYTE* sid)
{
    return !sid || (sid[0] == kSidRevision && sid[1] <= kMaxSubAuthorities);
}

bool IsValidAcl(const BYTE* list)
{
    if (!list)
        return true;
    ACL acl;
    memcpy(&acl, list, sizeof acl);
    if (acl.AclRevision < kMinAclRevision || acl.AclRevision > kMaxAclRevision || acl.AclSize < sizeof acl)
        return false;
    size_t end = sizeof acl;
    for (WORD i = 0; i < acl.AceCount; i++) {
        ACE_HEADER entry;
        if (acl.AclSize - end < sizeof entry)
            return false;
        memcpy(&entry, list + end, sizeof entry);
        if (entry.AceSize < sizeof entry || entry.AceSize > acl.AclSize - end)
            return false;
        end += entry.AceSize;
    }
    return true;
}

DWORD RoundedUp(DWORD size)
{
    return (size + 3) & ~3u;
}

DWORD SidSize(const BYTE* sid)
{
    return sid ? RoundedUp(kSidFixedSize + 4u * sid[1]) : 0;
}

DWORD AclSize(const BYTE* list)
{
    if (!list)
        return 0;
    ACL acl;
    memcpy(&acl, list, sizeof acl);
    return RoundedUp(acl.AclSize);
}

}  // namespace

BOOL WINAPI InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision)
{
    if (revision != SECURITY_DESCRIPTOR_REVISION)
        return Fail(ERROR_INVALID_PARAMETER);
    SECURITY_DESCRIPTOR empty;
    memset(&empty, 0, sizeof empty);
    empty.Revision = SECURITY_DESCRIPTOR_REVISION;
    memcpy(descriptor, &empty, sizeof empty);
    return TRUE;
}

BOOL WINAPI IsValidSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor)
{
    if (!descriptor || static_cast<const BYTE*>(descriptor)[0] != SECURITY_DESCRIPTOR_REVISION)
        return FALSE;
    const Parts parts = PartsOf(descriptor);
    return IsValidSid(parts.owner) && IsValidSid(parts.group) && IsValidAcl(parts.sacl) && IsValidAcl(parts.dacl);
}

DWORD WINAPI GetSecurityDescriptorLength(PSECURITY_DESCRIPTOR descriptor)
{
    const Parts parts = PartsOf(descriptor);
    return parts.headSize + SidSize(parts.owner) + SidSize(parts.group) + AclSize(parts.sacl) + AclSize(parts.dacl);
}
