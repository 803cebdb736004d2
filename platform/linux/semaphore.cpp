#include <errno.h>
#include <pthread.h>

#include "platform/linux/handles.h"
#include "platform/linux/monotonic.h"
#include "platform/linux/outcome.h"

namespace {

class Semaphore : public KernelObject {
  public:
    static constexpr Kind kKind = Kind::semaphore;

    Semaphore(LONG initialCount, LONG maximumCount) : KernelObject(kKind), count_(initialCount), maximum_(maximumCount)
    {
        pthread_mutex_init(&mutex_, nullptr);
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        // A change of the wall clock must neither shorten nor stretch a wait.
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&released_, &attributes);
        pthread_condattr_destroy(&attributes);
    }

    ~Semaphore() override
    {
        pthread_cond_destroy(&released_);
        pthread_mutex_destroy(&mutex_);
    }

    DWORD Wait(DWORD waitMs)
    {
        const timespec deadline = MonotonicAfter(waitMs);
        pthread_mutex_lock(&mutex_);
        int result = 0;
        while (count_ == 0 && result != ETIMEDOUT) {
            if (waitMs == INFINITE)
                result = pthread_cond_wait(&released_, &mutex_);
            else
                result = pthread_cond_timedwait(&released_, &mutex_, &deadline);
        }
        const bool taken = count_ > 0;
        if (taken)
            count_--;
        pthread_mutex_unlock(&mutex_);
        return taken ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
    }

    bool Release(LONG releaseCount, LPLONG previousCount)
    {
        pthread_mutex_lock(&mutex_);
        const bool fits = releaseCount <= maximum_ - count_;
        if (fits) {
            if (previousCount != nullptr)
                *previousCount = count_;
            count_ += releaseCount;
            pthread_cond_broadcast(&released_);
        }
        pthread_mutex_unlock(&mutex_);
        return fits;
    }

  private:
    pthread_mutex_t mutex_;
    pthread_cond_t released_;
    LONG count_;
    const LONG maximum_;
};

}  // namespace

HANDLE WINAPI CreateSemaphoreW(LPSECURITY_ATTRIBUTES, LONG initialCount, LONG maximumCount, LPCWSTR name)
{
    HANDLE handle = nullptr;
    Succeeds([&]() -> LONG {
        if (name != nullptr)
            return ERROR_NOT_SUPPORTED;
        if (initialCount < 0 || maximumCount <= 0 || initialCount > maximumCount)
            return ERROR_INVALID_PARAMETER;
        handle = PublishHandle(ObjectRef<KernelObject>(new Semaphore(initialCount, maximumCount)));
        return handle == nullptr ? ERROR_NO_SYSTEM_RESOURCES : ERROR_SUCCESS;
    });
    return handle;
}

BOOL WINAPI ReleaseSemaphore(HANDLE semaphore, LONG releaseCount, LPLONG previousCount)
{
    const auto object = FindObject<Semaphore>(semaphore);
    if (object == nullptr)
        return FALSE;
    if (releaseCount <= 0)
        return Fail(ERROR_INVALID_PARAMETER);
    return object->Release(releaseCount, previousCount) ? TRUE : Fail(ERROR_TOO_MANY_POSTS);
}

DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD waitMs)
{
    const auto object = FindObject<Semaphore>(handle);
    return object == nullptr ? WAIT_FAILED : object->Wait(waitMs);
}
