// Objects with a reference count, which starts at 1. The last reference deletes the object.
#pragma once

#include <atomic>
#include <memory>

class RefCounted {
  public:
    virtual ~RefCounted() = default;

    void AddReference() { references_.fetch_add(1, std::memory_order_relaxed); }
    void DropReference()
    {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

  private:
    std::atomic<int> references_{1};
};

struct ReferenceDropper {
    void operator()(RefCounted* object) const { object->DropReference(); }
};
// Owns one reference.
template <typename T>
using ObjectRef = std::unique_ptr<T, ReferenceDropper>;

template <typename T>
ObjectRef<T> NewReference(T* object)
{
    if (object)
        object->AddReference();
    return ObjectRef<T>(object);
}
