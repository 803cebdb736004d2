// KelvaroBufferList: the blocks that KelvaroEnumKeys handed to the host. Safe on any thread.
#pragma once

#include "platform/platform.h"

struct KelvaroBufferEntry {
    void* buffer;  // the block handed to the host
    KelvaroBufferEntry* next;
    KelvaroBufferEntry* previous;
};

// Makes the list empty; at attach.
void KelvaroBufferListInit();

// Appends an entry for `buffer`. NULL when it stands in the list already or no entry can be allocated.
KelvaroBufferEntry* KelvaroRegisterBuffer(void* buffer);

// Takes the entry of `buffer` out of the list and frees the entry, not the block. Whether there was one.
bool KelvaroForgetBuffer(void* buffer);

// Whether `buffer` stands in the list.
bool KelvaroIsRegistered(const void* buffer);
