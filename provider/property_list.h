// The named byte strings that a host keeps with a key, and the one lock over the lists of all keys.
#pragma once

#include "provider/key_object.h"

// Unnamed, count 1; created at attach, closed at detach. May be NULL when the platform had none: waits then fail.
extern HANDLE KelvaroPropertySemaphore;

// Waits up to 60 s for KelvaroPropertySemaphore and gives it back at the end, if it was had. A wait that ends without
// it logs "failureText" with the wait's result at level 4, and the user goes on without the lock.
class PropertyLock {
  public:
    explicit PropertyLock(const WCHAR* failureText);
    ~PropertyLock();
    PropertyLock(const PropertyLock&) = delete;
    PropertyLock& operator=(const PropertyLock&) = delete;

  private:
    bool held_;
};

// A new entry that is in no list yet, with a copy of cbData bytes; the caller links it or
// gives it to FreeProperty. 0; NTE_NO_MEMORY; NTE_INVALID_PARAMETER for a name over 64 characters.
SECURITY_STATUS MakeKeyProperty(const WCHAR* pszName, const BYTE* pbData, DWORD cbData, DWORD dwFlags,
                                KSP_PROPERTY** pProperty);

// The first entry of that exact name, borrowed. The caller holds the lock. 0 or NTE_NOT_FOUND.
SECURITY_STATUS FindKeyProperty(KSP_KEY* pKey, const WCHAR* pszName, KSP_PROPERTY** pProperty);

void PropertyListInit(PropertyLink* head);
void PropertyListAppend(PropertyLink* head, KSP_PROPERTY* property);
void FreeProperty(KSP_PROPERTY* property);  // takes it out of its list, wipes and frees it
KSP_PROPERTY* PropertyFromLink(PropertyLink* link);
