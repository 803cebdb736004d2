#include "platform/linux/winhttp_tls.h"

#include <openssl/err.h>
#include <sys/stat.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>

namespace winhttp {
namespace {

constexpr char kSystemRoots[] = "/etc/ssl/certs/ca-certificates.crt";

struct StoreDeleter {
    void operator()(X509_STORE* store) const { X509_STORE_free(store); }
};
using Store = std::unique_ptr<X509_STORE, StoreDeleter>;

bool SameFile(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

Store Load(const char* path)
{
    Store store(X509_STORE_new());
    if (store && X509_STORE_load_file(store.get(), path) != 1)
        store.reset();
    // Nothing of a bad bundle may be taken for an error of the connection later on.
    ERR_clear_error();
    return store;
}

// Reading a whole bundle takes tens of milliseconds, much longer than a handshake.
struct Cache {
    std::mutex lock;
    std::string path;
    struct stat file = {};
    Store store;
};

}  // namespace

X509_STORE* AcquireTrustedRoots()
{
    static Cache cache;
    const char* named = std::getenv("SSL_CERT_FILE");
    const char* path = named != nullptr && *named != '\0' ? named : kSystemRoots;

    const std::lock_guard<std::mutex> guard(cache.lock);
    struct stat now = {};
    if (stat(path, &now) != 0)
        return nullptr;
    if (!cache.store || cache.path != path || !SameFile(cache.file, now)) {
        cache.store.reset();
        cache.path = path;
        cache.file = now;
        cache.store = Load(path);
    }
    if (cache.store)
        X509_STORE_up_ref(cache.store.get());
    return cache.store.get();
}

}  // namespace winhttp
