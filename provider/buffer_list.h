// KelvaroBufferList: the blocks that KelvaroEnumKeys handed to the host. Safe on any thread.
#pragma once

#include "platform/platform.h"

// What a block is; a host may hand back an enumeration's state, and nothing else counts as one.
enum class BufferKind { keyName, enumState };

struct KelvaroBufferEntry {
    void* buffer;  // the block handed to the host
    KelvaroBufferEntry* next;
    KelvaroBufferEntry* previous;
    BufferKind kind;
};

// Makes the list empty; at attach.
void KelvaroBufferListInit();

// Appends an entry for `buffer`. NULL when it stands in the list already or no entry can be allocated.
KelvaroBufferEntry* KelvaroRegisterBuffer(void* buffer, BufferKind kind);

// Takes the entry of `buffer` out of the list and frees the entry, not the block. Whether there was one.
bool KelvaroForgetBuffer(void* buffer);

// Whether `buffer` stands in the list as a block of that kind.
bool KelvaroIsRegistered(const void* buffer, BufferKind kind);
