// Security descriptors for the Linux build: published structures, and three calls on them.
#pragma once

#include "platform/linux/win_constants.h"

using SECURITY_DESCRIPTOR_CONTROL = WORD;

struct ACL {
    BYTE AclRevision;
    BYTE Sbz1;
    WORD AclSize;
    WORD AceCount;
    WORD Sbz2;
};
using PACL = ACL*;

struct ACE_HEADER {
    BYTE AceType;
    BYTE AceFlags;
    WORD AceSize;
};

struct SID_IDENTIFIER_AUTHORITY {
    BYTE Value[6];
};

struct SID {
    BYTE Revision;
    BYTE SubAuthorityCount;
    SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
    DWORD SubAuthority[1];
};

// The absolute form: the parts are pointers.
struct SECURITY_DESCRIPTOR {
    BYTE Revision;
    BYTE Sbz1;
    SECURITY_DESCRIPTOR_CONTROL Control;
    PSID Owner;
    PSID Group;
    PACL Sacl;
    PACL Dacl;
};

// The self-relative form (SE_SELF_RELATIVE): the parts are offsets from the descriptor's start, 0 for none.
struct SECURITY_DESCRIPTOR_RELATIVE {
    BYTE Revision;
    BYTE Sbz1;
    SECURITY_DESCRIPTOR_CONTROL Control;
    DWORD Owner;
    DWORD Group;
    DWORD Sacl;
    DWORD Dacl;
};

// An empty absolute descriptor. FALSE unless revision is SECURITY_DESCRIPTOR_REVISION.
BOOL WINAPI InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision);

// Checks the form only. Both calls read what the descriptor points to without knowing its size.
BOOL WINAPI IsValidSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor);
// Bytes of a valid descriptor with all its parts.
DWORD WINAPI GetSecurityDescriptorLength(PSECURITY_DESCRIPTOR descriptor);
