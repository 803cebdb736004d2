// The named byte strings that a host stores with a key, and the one lock over the lists of all keys.
#pragma once

#include "platform/owner.h"
#include "platform/platform.h"

constexpr size_t kPropertyNameLimit = 64;  // characters of a property name, without the terminator

// A link of a circular list; in an empty list the head points to itself.
struct PropertyLink {
    PropertyLink* next;
    PropertyLink* previous;
};

// One block on the process heap with the data after the fixed part.
struct KSP_PROPERTY {
    DWORD fPersisted;
    WCHAR szName[kPropertyNameLimit + 1];
    DWORD cbPropertyData;  // bytes; may be 0
    PropertyLink ListEntry;
    DWORD fBuildin;

    BYTE* data() { return reinterpret_cast<BYTE*>(this + 1); }
};

// Unnamed, count 1; created at attach, closed at detach. NULL if the platform had none: waits then fail.
extern HANDLE KelvaroPropertySemaphore;

// Waits up to 60 s for KelvaroPropertySemaphore and releases it at the end if acquired. If the wait fails, it logs
// "failureText" with the wait's result at level 4, and the caller continues without the lock.
class PropertyLock : private NonCopyable {
  public:
    explicit PropertyLock(const WCHAR* failureText);
    ~PropertyLock();

  private:
    bool held_;
};

// A new entry with a copy of cbData bytes, in no list yet: the caller appends it or frees it with FreeProperty. 0;
// NTE_NO_MEMORY; NTE_INVALID_PARAMETER for a name over 64 characters.
SECURITY_STATUS MakeKeyProperty(const WCHAR* pszName, const BYTE* pbData, DWORD cbData, DWORD dwFlags,
                                KSP_PROPERTY** pProperty);

void PropertyListInit(PropertyLink* head);
void PropertyListAppend(PropertyLink* head, KSP_PROPERTY* property);
void FreeProperty(KSP_PROPERTY* property);  // takes it out of its list, wipes and frees it
KSP_PROPERTY* PropertyFromLink(PropertyLink* link);
