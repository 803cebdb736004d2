#include "platform/linux/handles.h"

#include <algorithm>
#include <mutex>

#include "platform/linux/fork_safe_lock.h"
#include "platform/linux/outcome.h"

namespace {

// A handle combines the slot's index and its generation. It is a multiple of 4 and never 0.
constexpr size_t kSlotCount = 4095;
constexpr unsigned kGenerationShift = 14;
constexpr uint32_t kGenerationMask = 0xFFFF;

struct Slot {
    KernelObject* object;
    uint32_t generation;
};

// Nothing here has a destructor: a host's threads may still run while the process exits.
ForkSafeLock slotsLock;
Slot slots[kSlotCount];
size_t nextSlot = 0;

HANDLE HandleOf(size_t index)
{
    const uintptr_t number = (static_cast<uintptr_t>(slots[index].generation) << kGenerationShift) + (index + 1) * 4;
    return reinterpret_cast<HANDLE>(number);
}

// What CloseHandle accepts.
constexpr std::initializer_list<KernelObject::Kind> kClosable = {
    KernelObject::Kind::semaphore, KernelObject::Kind::file, KernelObject::Kind::transaction};

bool IsOneOf(KernelObject::Kind kind, std::initializer_list<KernelObject::Kind> kinds)
{
    return std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
}

// NULL if it isn't an open handle.
Slot* SlotOf(HANDLE handle)
{
    const uintptr_t number = reinterpret_cast<uintptr_t>(handle);
    const size_t index = ((number & ((1u << kGenerationShift) - 1)) / 4) - 1;
    const bool open = index < kSlotCount && slots[index].object && HandleOf(index) == handle;
    return open ? &slots[index] : nullptr;
}

}  // namespace

HANDLE PublishHandle(ObjectRef<KernelObject> object)
{
    const std::lock_guard<ForkSafeLock> hold(slotsLock);
    for (size_t tried = 0; tried < kSlotCount; tried++) {
        const size_t index = nextSlot;
        nextSlot = (nextSlot + 1) % kSlotCount;
        if (slots[index].object)
            continue;
        slots[index].generation = (slots[index].generation + 1) & kGenerationMask;
        slots[index].object = object.release();
        return HandleOf(index);
    }
    Fail(ERROR_NO_SYSTEM_RESOURCES);
    return nullptr;
}

ObjectRef<KernelObject> FindHandle(HANDLE handle, KernelObject::Kind kind)
{
    const std::lock_guard<ForkSafeLock> hold(slotsLock);
    const Slot* slot = SlotOf(handle);
    if (!slot || slot->object->kind() != kind) {
        Fail(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return NewReference(slot->object);
}

ObjectRef<KernelObject> RetireHandle(HANDLE handle, std::initializer_list<KernelObject::Kind> kinds)
{
    const std::lock_guard<ForkSafeLock> hold(slotsLock);
    Slot* slot = SlotOf(handle);
    if (!slot || !IsOneOf(slot->object->kind(), kinds)) {
        Fail(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    ObjectRef<KernelObject> retired(slot->object);
    slot->object = nullptr;
    return retired;
}

void RetireHandles(std::initializer_list<KernelObject::Kind> kinds)
{
    const std::lock_guard<ForkSafeLock> hold(slotsLock);
    for (Slot& slot : slots) {
        if (!slot.object || !IsOneOf(slot.object->kind(), kinds))
            continue;
        slot.object->DropReference();
        slot.object = nullptr;
    }
}

BOOL WINAPI CloseHandle(HANDLE handle)
{
    return RetireHandle(handle, kClosable) != nullptr;
}

BOOL WINAPI GetHandleInformation(HANDLE handle, LPDWORD flags)
{
    const std::lock_guard<ForkSafeLock> hold(slotsLock);
    const Slot* slot = SlotOf(handle);
    if (!slot || !IsOneOf(slot->object->kind(), kClosable))
        return Fail(ERROR_INVALID_HANDLE);
    *flags = 0;
    return TRUE;
}
