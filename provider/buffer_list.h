// KelvaroBufferList: the blocks that KelvaroEnumKeys handed to the host. Safe on any thread.
#pragma once

#include "platform/platform.h"

// What a block is. Only an EnumState is accepted as an enumeration's state.
enum class BufferKind { KeyName, EnumState };

struct KelvaroBufferEntry {
    void* buffer;  // the block handed to the host
    KelvaroBufferEntry* next;
    KelvaroBufferEntry* previous;
    BufferKind kind;
};

// Empties the list; at attach.
void KelvaroBufferListInit();

// Appends an entry for `buffer`. NULL: it is already in the list, or no memory.
KelvaroBufferEntry* KelvaroRegisterBuffer(void* buffer, BufferKind kind);

// Removes and frees the entry of `buffer`, but not the block. False: no such entry.
bool KelvaroForgetBuffer(void* buffer);

// Whether `buffer` is in the list as a block of that kind.
bool KelvaroIsRegistered(const void* buffer, BufferKind kind);
