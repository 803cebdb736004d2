#include "provider/descriptor_check.h"

#include <string.h>

namespace {

// Whether a part of a self-relative descriptor is within cbInput bytes. Both kinds of part begin with eight fixed
// bytes.
bool PartInside(const BYTE* input, DWORD cbInput, DWORD offset, bool isAcl)
{
    if (offset == 0)
        return true;
    if (offset > cbInput || cbInput - offset < 8)
        return false;
    WORD aclSize;
    memcpy(&aclSize, input + offset + offsetof(ACL, AclSize), sizeof(aclSize));
    const DWORD sidSize = 8 + 4 * DWORD{input[offset + offsetof(SID, SubAuthorityCount)]};
    return (isAcl ? aclSize : sidSize) <= cbInput - offset;
}

// Whether the platform's calls, which take no size, would read within cbInput bytes.
bool ReadsInside(const BYTE* input, DWORD cbInput)
{
    SECURITY_DESCRIPTOR_RELATIVE head;
    if (cbInput < sizeof(head))
        return false;
    memcpy(&head, input, sizeof(head));
    if ((head.Control & SE_SELF_RELATIVE) == 0)
        return cbInput >= sizeof(SECURITY_DESCRIPTOR);
    return PartInside(input, cbInput, head.Owner, false) && PartInside(input, cbInput, head.Group, false) &&
           ((head.Control & SE_SACL_PRESENT) == 0 || PartInside(input, cbInput, head.Sacl, true)) &&
           ((head.Control & SE_DACL_PRESENT) == 0 || PartInside(input, cbInput, head.Dacl, true));
}

}  // namespace

bool HoldsSecurityDescriptor(const BYTE* input, DWORD cbInput)
{
    BYTE* descriptor = const_cast<BYTE*>(input);
    return ReadsInside(input, cbInput) && IsValidSecurityDescriptor(descriptor) &&
           GetSecurityDescriptorLength(descriptor) <= cbInput;
}
