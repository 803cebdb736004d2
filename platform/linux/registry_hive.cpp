#include "platform/linux/registry_hive.h"

#include <errno.h>
#include <string.h>
#include <time.h>

#include <memory>
#include <mutex>
#include <utility>

#include "platform/linux/fork_safe_lock.h"
#include "platform/linux/outcome.h"
#include "platform/linux/paths.h"
#include "platform/linux/text.h"

namespace {

constexpr size_t kMaxFileSize = 64u << 20;
// A file that changed this recently before it was read may change again within the same time stamp.
constexpr int64_t kUnsettledNs = 100000000;

constexpr std::u16string_view kRootNames[] = {u"HKEY_LOCAL_MACHINE", u"HKEY_CURRENT_USER"};

struct CachedHive {
    std::string path;
    struct stat status = {};
    bool settled = false;
    LONG error = ERROR_SUCCESS;
    RegistryHive hive;
};

// Plain pointers without destructors: a host's threads may still read while the process exits.
ForkSafeLock cacheLock;
CachedHive* cache[2] = {nullptr, nullptr};

// Runs after everything else in the module; a later read would just refill the cache.
__attribute__((destructor(101))) void DropCache()
{
    const std::lock_guard<ForkSafeLock> hold(cacheLock);
    for (CachedHive*& cached : cache)
        delete std::exchange(cached, nullptr);
}

std::u16string_view RootName(HiveId id)
{
    return kRootNames[static_cast<size_t>(id)];
}

int64_t Nanoseconds(const timespec& point)
{
    return static_cast<int64_t>(point.tv_sec) * 1000000000 + point.tv_nsec;
}

bool IsSameFile(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           Nanoseconds(a.st_mtim) == Nanoseconds(b.st_mtim) && Nanoseconds(a.st_ctim) == Nanoseconds(b.st_ctim);
}

bool IsCurrent(const CachedHive* cached, const std::string& path)
{
    struct stat status;
    return cached && cached->settled && cached->path == path && lstat(path.c_str(), &status) == 0 &&
           IsSameFile(cached->status, status);
}

// Reads and parses the file; a missing one is an empty hive.
LONG LoadHive(HiveId id, const std::string& path, RegistryHive* hive, struct stat* status = nullptr)
{
    SecretString content;
    const LONG error = ReadWholeFile(path, kMaxFileSize, &content, status);
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
        return ERROR_SUCCESS;
    if (error == ERROR_FILE_TOO_LARGE || error == ERROR_BAD_FILE_TYPE)
        return ERROR_BADDB;
    if (error != ERROR_SUCCESS)
        return error;
    return ParseRegistryFile(content, RootName(id), hive) ? ERROR_SUCCESS : ERROR_BADDB;
}

// The cache outlives the provider that used the secret. Comments may contain an old secret.
void ForgetSecrets(RegistryHive* hive)
{
    hive->closingComments = SecretText();
    for (RegistryKey& key : hive->keys) {
        key.comments = SecretText();
        for (RegistryValue& value : key.values) {
            value.comments = SecretText();
            if (EqualIgnoringCase(value.name, kClearSecret))
                value.data = SecretBytes();
        }
    }
}

// The caller holds cacheLock.
const CachedHive& CurrentHive(HiveId id)
{
    CachedHive*& slot = cache[static_cast<size_t>(id)];
    const std::string path = HiveFile(id);
    if (IsCurrent(slot, path))
        return *slot;
    timespec before;
    clock_gettime(CLOCK_REALTIME, &before);
    auto fresh = std::make_unique<CachedHive>();
    fresh->path = path;
    fresh->error = LoadHive(id, path, &fresh->hive, &fresh->status);
    fresh->settled = Nanoseconds(before) - Nanoseconds(fresh->status.st_ctim) > kUnsettledNs;
    ForgetSecrets(&fresh->hive);
    delete std::exchange(slot, fresh.release());
    return *slot;
}

// Runs `change` on the hive read from the file.
LONG Try(HiveId id, const std::string& path, const HiveChange& change, RegistryHive* hive, bool* changed)
{
    *changed = false;
    const LONG error = LoadHive(id, path, hive);
    return error == ERROR_SUCCESS ? change(hive, changed) : error;
}

}  // namespace

std::string HiveFile(HiveId id)
{
    return id == HiveId::machine ? RootDirectory() + "/registry/HKEY_LOCAL_MACHINE.reg"
                                 : UserDirectory() + "/registry/HKEY_CURRENT_USER.reg";
}

LONG ReadHive(HiveId id, HiveContent content, const std::function<LONG(const RegistryHive&)>& visit)
{
    if (content == HiveContent::complete) {
        RegistryHive hive;
        const LONG error = LoadHive(id, HiveFile(id), &hive);
        return error == ERROR_SUCCESS ? visit(hive) : error;
    }
    const std::lock_guard<ForkSafeLock> hold(cacheLock);
    const CachedHive& current = CurrentHive(id);
    return current.error == ERROR_SUCCESS ? visit(current.hive) : current.error;
}

LONG ChangeHive(HiveId id, const HiveChange& change)
{
    bool changed = false;
    RegistryHive tried;
    const LONG error = Try(id, HiveFile(id), change, &tried, &changed);
    if (error != ERROR_SUCCESS || !changed)
        return error;
    HiveRewrite rewrite;
    Check(rewrite.Prepare(id, change));
    return rewrite.Publish();
}

LONG HiveRewrite::Prepare(HiveId id, const HiveChange& change)
{
    const std::string path = HiveFile(id);
    Check(lock_.Acquire(path));
    RegistryHive hive;
    const LONG error = Try(id, path, change, &hive, &changed_);
    if (error != ERROR_SUCCESS || !changed_)
        return error;
    path_ = path;
    const LONG readAgain = ReadWholeFile(path, kMaxFileSize, &before_);
    if (readAgain != ERROR_SUCCESS && readAgain != ERROR_FILE_NOT_FOUND)
        return readAgain;
    const SecretString content = FormatRegistryFile(hive, RootName(id));
    return content.size() <= kMaxFileSize ? file_.Prepare(path, content) : ERROR_FILE_TOO_LARGE;
}

LONG HiveRewrite::Publish()
{
    return changed_ ? file_.Publish() : ERROR_SUCCESS;
}

void HiveRewrite::Undo()
{
    if (changed_ && !before_.empty())
        ReplaceFile(path_, before_);
}
