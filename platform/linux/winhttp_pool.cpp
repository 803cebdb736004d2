#include "platform/linux/winhttp_pool.h"

#include <sys/auxv.h>
#include <sys/select.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>
#include <utility>

namespace winhttp {
namespace {

bool InitializeOnce()
{
    static std::once_flag once;
    static CURLcode result = CURLE_FAILED_INIT;
    std::call_once(once, [] {
        // libcurl would open this file here, and write the keys of all connections to it.
        if (IsPrivileged())
            unsetenv("SSLKEYLOGFILE");
        result = curl_global_init(CURL_GLOBAL_DEFAULT);
    });
    return result == CURLE_OK;
}

// Lock-free, so that a fork never leaves the child with a lock that is held forever.
class Pool {
  public:
    ~Pool()
    {
        while (Take()) {
        }
    }

    std::unique_ptr<Transfer> Take()
    {
        for (std::atomic<Transfer*>& place : places_) {
            if (!place.load(std::memory_order_relaxed))
                continue;
            std::unique_ptr<Transfer> transfer(place.exchange(nullptr, std::memory_order_acquire));
            // After a fork, parent and child would share the descriptors.
            if (transfer && transfer->owner() == getpid())
                return transfer;
        }
        return nullptr;
    }

    void Return(std::unique_ptr<Transfer> transfer)
    {
        for (std::atomic<Transfer*>& place : places_) {
            Transfer* none = nullptr;
            if (place.compare_exchange_strong(none, transfer.get(), std::memory_order_release,
                                              std::memory_order_relaxed)) {
                transfer.release();
                return;
            }
        }
    }

  private:
    std::array<std::atomic<Transfer*>, 8> places_ = {};
};

bool HasDescriptors(CURLM* multi)
{
    fd_set sets[3];
    for (fd_set& set : sets)
        FD_ZERO(&set);
    int last = -1;
    return curl_multi_fdset(multi, &sets[0], &sets[1], &sets[2], &last) != CURLM_OK || last >= 0;
}

// Created after libcurl and OpenSSL, on first use, so that it is destroyed before them.
Pool& ThePool()
{
    static Pool pool;
    return pool;
}

}  // namespace

bool IsPrivileged()
{
    return getauxval(AT_SECURE) != 0;
}

Transfer::Transfer() : multi_(curl_multi_init()), easy_(curl_easy_init()), owner_(getpid())
{
    if (!easy_ || !multi_)
        throw std::bad_alloc();
}

CURLcode Transfer::Use(std::shared_ptr<const TlsShare> tls)
{
    const CURLcode result = curl_easy_setopt(easy(), CURLOPT_SHARE, tls->sessions());
    tls_ = std::move(tls);
    return result;
}

void Transfer::Reset()
{
    curl_easy_setopt(easy(), CURLOPT_SHARE, nullptr);
    curl_easy_reset(easy());
    tls_.reset();
}

std::unique_ptr<Transfer> TakeTransfer()
{
    if (!InitializeOnce())
        throw std::bad_alloc();
    std::unique_ptr<Transfer> transfer = ThePool().Take();
    return transfer ? std::move(transfer) : std::make_unique<Transfer>();
}

void ReturnTransfer(std::unique_ptr<Transfer> transfer)
{
    // A transfer without TLS leaves a session cache in the easy handle, which would leak once the shared one replaces
    // it. And later versions of libcurl may still have a connection to close.
    if (!transfer->tls() || HasDescriptors(transfer->multi()))
        return;
    transfer->Reset();
    ThePool().Return(std::move(transfer));
}

}  // namespace winhttp
