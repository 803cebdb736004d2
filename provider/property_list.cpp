#include "provider/property_list.h"

#include <string.h>

#include "provider/kept_buffer.h"
#include "support/heap.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr DWORD kWaitMs = 60000;

}  // namespace

PropertyLock::PropertyLock(const WCHAR* failureText)
{
    const DWORD result = WaitForSingleObject(KelvaroPropertySemaphore, kWaitMs);
    held_ = result == WAIT_OBJECT_0;
    if (!held_)
        LogError(failureText, result, LOG_ENTRY_LEVEL);
}

PropertyLock::~PropertyLock()
{
    if (held_)
        ReleaseSemaphore(KelvaroPropertySemaphore, 1, nullptr);
}

SECURITY_STATUS MakeKeyProperty(const WCHAR* pszName, const BYTE* pbData, DWORD cbData, DWORD dwFlags,
                                KSP_PROPERTY** pProperty)
{
    HeapPtr<KSP_PROPERTY> property(
        static_cast<KSP_PROPERTY*>(HeapAllocSized(0, uint64_t{sizeof(KSP_PROPERTY)} + cbData)));
    if (!property)
        return NTE_NO_MEMORY;
    if (!TextCopy(property->szName, kPropertyNameLimit + 1, View(pszName)))
        return NTE_INVALID_PARAMETER;
    property->cbPropertyData = cbData;
    property->fBuildin = (dwFlags & NCRYPT_PERSIST_ONLY_FLAG) == 0;
    property->fPersisted = (dwFlags & (NCRYPT_PERSIST_FLAG | NCRYPT_PERSIST_ONLY_FLAG)) != 0;
    PropertyListInit(&property->ListEntry);
    if (cbData)
        memcpy(property->data(), pbData, cbData);
    *pProperty = property.release();
    return ERROR_SUCCESS;
}

void PropertyListInit(PropertyLink* head)
{
    head->next = head;
    head->previous = head;
}

void PropertyListAppend(PropertyLink* head, KSP_PROPERTY* property)
{
    PropertyLink* link = &property->ListEntry;
    link->next = head;
    link->previous = head->previous;
    link->previous->next = link;
    head->previous = link;
}

void FreeProperty(KSP_PROPERTY* property)
{
    PropertyLink* link = &property->ListEntry;
    link->previous->next = link->next;
    link->next->previous = link->previous;
    WipeAndFree(property, sizeof(KSP_PROPERTY) + property->cbPropertyData);
}

KSP_PROPERTY* PropertyFromLink(PropertyLink* link)
{
    return reinterpret_cast<KSP_PROPERTY*>(reinterpret_cast<BYTE*>(link) - offsetof(KSP_PROPERTY, ListEntry));
}
