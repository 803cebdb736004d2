#include "platform/linux/winhttp_tls.h"

#include <openssl/err.h>
#include <sys/stat.h>

#include <cstdlib>
#include <mutex>
#include <new>
#include <string>

namespace winhttp {
namespace {

constexpr char kSystemRoots[] = "/etc/ssl/certs/ca-certificates.crt";

bool SameFile(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// Reading a whole bundle takes tens of milliseconds, much longer than a handshake.
struct Cache {
    ForkSafeLock lock;
    std::string path;
    struct stat file = {};
    std::shared_ptr<const TlsShare> share;
};

}  // namespace

TlsShare::TlsShare(const char* path) : roots_(X509_STORE_new()), sessions_(curl_share_init())
{
    if (!roots_ || !sessions_)
        throw std::bad_alloc();
    curl_share_setopt(sessions(), CURLSHOPT_LOCKFUNC, &Lock);
    curl_share_setopt(sessions(), CURLSHOPT_UNLOCKFUNC, &Unlock);
    curl_share_setopt(sessions(), CURLSHOPT_USERDATA, this);
    curl_share_setopt(sessions(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    if (!path || X509_STORE_load_file(roots(), path) != 1)
        roots_.reset();
    // Errors from a bad bundle must not be mistaken for connection errors later.
    ERR_clear_error();
}

void TlsShare::Lock(CURL*, curl_lock_data data, curl_lock_access, void* self)
{
    static_cast<TlsShare*>(self)->locks_[data].lock();
}

void TlsShare::Unlock(CURL*, curl_lock_data data, void* self)
{
    static_cast<TlsShare*>(self)->locks_[data].unlock();
}

std::shared_ptr<const TlsShare> AcquireTlsShare()
{
    static Cache cache;
    const char* named = secure_getenv("SSL_CERT_FILE");
    const char* path = named && *named != '\0' ? named : kSystemRoots;

    const std::lock_guard<ForkSafeLock> guard(cache.lock);
    struct stat now = {};
    // A FIFO would block its reader and everyone waiting for the lock.
    const bool regular = stat(path, &now) == 0 && S_ISREG(now.st_mode);
    if (cache.share && cache.path == path && SameFile(cache.file, now))
        return cache.share;
    cache.share.reset();
    auto share = std::make_shared<const TlsShare>(regular ? path : nullptr);
    // A failure may be transient, so don't cache it.
    if (!share->roots())
        return share;
    cache.path = path;
    cache.file = now;
    cache.share = share;
    return share;
}

}  // namespace winhttp
