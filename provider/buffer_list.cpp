#include "provider/buffer_list.h"

#include "support/guards.h"

namespace {

// The head; in an empty list it points to itself.
KelvaroBufferEntry KelvaroBufferList = {nullptr, &KelvaroBufferList, &KelvaroBufferList, BufferKind::KeyName};
SRWLOCK listLock = SRWLOCK_INIT;

// The entry of `buffer`, or NULL. The caller holds listLock.
KelvaroBufferEntry* FindEntry(const void* buffer)
{
    for (KelvaroBufferEntry* entry = KelvaroBufferList.next; entry != &KelvaroBufferList; entry = entry->next) {
        if (entry->buffer == buffer)
            return entry;
    }
    return nullptr;
}

}  // namespace

void KelvaroBufferListInit()
{
    const ExclusiveLock lock(&listLock);
    KelvaroBufferList.next = &KelvaroBufferList;
    KelvaroBufferList.previous = &KelvaroBufferList;
}

KelvaroBufferEntry* KelvaroRegisterBuffer(void* buffer, BufferKind kind)
{
    const ExclusiveLock lock(&listLock);
    if (FindEntry(buffer))
        return nullptr;
    auto* entry = static_cast<KelvaroBufferEntry*>(HeapAlloc(GetProcessHeap(), 0, sizeof(KelvaroBufferEntry)));
    if (!entry)
        return nullptr;
    entry->buffer = buffer;
    entry->kind = kind;
    entry->next = &KelvaroBufferList;
    entry->previous = KelvaroBufferList.previous;
    entry->previous->next = entry;
    KelvaroBufferList.previous = entry;
    return entry;
}

bool KelvaroForgetBuffer(void* buffer)
{
    HeapPtr<KelvaroBufferEntry> entry;
    const ExclusiveLock lock(&listLock);
    entry.reset(FindEntry(buffer));
    if (!entry)
        return false;
    entry->previous->next = entry->next;
    entry->next->previous = entry->previous;
    return true;
}

bool KelvaroIsRegistered(const void* buffer, BufferKind kind)
{
    const ExclusiveLock lock(&listLock);
    const KelvaroBufferEntry* entry = FindEntry(buffer);
    return entry && entry->kind == kind;
}
