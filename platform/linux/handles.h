// The process's handles: small numbers that map to reference-counted objects, so that closed and foreign handles are
// rejected and an object stays alive while a call uses it.
#pragma once

#include <initializer_list>

#include "platform/linux/ref_counted.h"
#include "platform/linux/win_types.h"

class KernelObject : public RefCounted {
  public:
    enum class Kind { semaphore, file, transaction, keyStorageProvider, softwareKey };

    explicit KernelObject(Kind kind) : kind_(kind) {}
    Kind kind() const { return kind_; }

  private:
    const Kind kind_;
};

// A new handle, or NULL when the table is full. Takes over the caller's reference.
HANDLE PublishHandle(ObjectRef<KernelObject> object);

// The object behind a handle, or NULL with ERROR_INVALID_HANDLE when it is closed, foreign or of another kind.
ObjectRef<KernelObject> FindHandle(HANDLE handle, KernelObject::Kind kind);

// Closes a handle of one of these kinds. Returns its object, or NULL with ERROR_INVALID_HANDLE.
ObjectRef<KernelObject> RetireHandle(HANDLE handle, std::initializer_list<KernelObject::Kind> kinds);

// Closes all handles of these kinds, when the module is unloaded.
void RetireHandles(std::initializer_list<KernelObject::Kind> kinds);

template <typename T>
ObjectRef<T> FindObject(HANDLE handle)
{
    return ObjectRef<T>(static_cast<T*>(FindHandle(handle, T::kKind).release()));
}
