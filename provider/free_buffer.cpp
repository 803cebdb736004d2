#include "provider/buffer_list.h"
#include "provider/entry_points.h"
#include "support/log.h"

SECURITY_STATUS WINAPI KelvaroFreeBuffer(PVOID pvInput)
{
    LogLine(TEXT("KelvaroFreeBuffer"), LOG_ENTRY_LEVEL);
    // Most blocks that a host has were never in the list, so the list doesn't decide what may be freed. The entry is
    // removed first, so that no other thread finds a block that is being freed.
    KelvaroForgetBuffer(pvInput);
    HeapFree(GetProcessHeap(), 0, pvInput);
    return ERROR_SUCCESS;
}
