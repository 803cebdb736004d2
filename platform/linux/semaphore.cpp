#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/linux/handles.h"
#include "platform/linux/outcome.h"

namespace {

class Semaphore : public KernelObject {
  public:
    static constexpr Kind kKind = Kind::semaphore;

    Semaphore(LONG initialCount, LONG maximumCount) : KernelObject(kKind), count_(initialCount), maximum_(maximumCount)
    {
    }

    DWORD Wait(DWORD waitMs)
    {
        const auto isFree = [this] { return count_ > 0; };
        std::unique_lock<std::mutex> hold(mutex_);
        if (waitMs == INFINITE)
            released_.wait(hold, isFree);
        // On the steady clock, so that a change of the wall clock neither shortens nor stretches a wait.
        else if (!released_.wait_for(hold, std::chrono::milliseconds(waitMs), isFree))
            return WAIT_TIMEOUT;
        count_--;
        return WAIT_OBJECT_0;
    }

    bool Release(LONG releaseCount, LPLONG previousCount)
    {
        const std::lock_guard<std::mutex> hold(mutex_);
        if (releaseCount > maximum_ - count_)
            return false;
        if (previousCount)
            *previousCount = count_;
        count_ += releaseCount;
        released_.notify_all();
        return true;
    }

  private:
    std::mutex mutex_;
    std::condition_variable released_;
    LONG count_;
    const LONG maximum_;
};

}  // namespace

HANDLE WINAPI CreateSemaphoreW(LPSECURITY_ATTRIBUTES, LONG initialCount, LONG maximumCount, LPCWSTR name)
{
    return ResultOf([&] {
        if (name)
            throw Failure(ERROR_NOT_SUPPORTED);
        if (initialCount < 0 || maximumCount <= 0 || initialCount > maximumCount)
            throw Failure(ERROR_INVALID_PARAMETER);
        return PublishHandle(ObjectRef<KernelObject>(new Semaphore(initialCount, maximumCount)));
    });
}

BOOL WINAPI ReleaseSemaphore(HANDLE semaphore, LONG releaseCount, LPLONG previousCount)
{
    const auto object = FindObject<Semaphore>(semaphore);
    if (!object)
        return FALSE;
    if (releaseCount <= 0)
        return Fail(ERROR_INVALID_PARAMETER);
    return object->Release(releaseCount, previousCount) ? TRUE : Fail(ERROR_TOO_MANY_POSTS);
}

DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD waitMs)
{
    const auto object = FindObject<Semaphore>(handle);
    return object ? object->Wait(waitMs) : WAIT_FAILED;
}
