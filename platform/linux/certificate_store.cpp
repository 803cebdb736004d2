#include "platform/linux/certificate_store.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string_view>

#include "platform/linux/certificate.h"
#include "platform/linux/file_store.h"
#include "platform/linux/outcome.h"
#include "platform/linux/text.h"

namespace {

constexpr size_t kMaxFileSize = 1 << 20;
constexpr std::string_view kHexDigits = "0123456789ABCDEF";
constexpr std::string_view kSuffix = ".pem";

bool IsCertificateName(std::string_view name)
{
    const size_t stem = 2 * kSha1Size;
    return name.size() == stem + kSuffix.size() && name.substr(stem) == kSuffix &&
           name.substr(0, stem).find_first_not_of(kHexDigits) == name.npos;
}

}  // namespace

LONG CertificateStore::List(std::vector<std::string>* names) const
{
    for (const auto& entry : memory_)
        names->push_back(entry.first);
    if (directory_.empty())
        return ERROR_SUCCESS;
    std::error_code error;
    for (std::filesystem::directory_iterator at(directory_, error), end; !error && at != end; at.increment(error)) {
        const std::string name = at->path().filename();
        if (IsCertificateName(name))
            names->push_back(name);
    }
    std::sort(names->begin(), names->end());
    return error == std::errc::no_such_file_or_directory ? ERROR_SUCCESS : ErrorFromErrno(error.value());
}

LONG CertificateStore::Load(const std::string& name, CertificateRecord* certificate) const
{
    if (directory_.empty()) {
        const auto found = memory_.find(name);
        if (found == memory_.end())
            return ERROR_FILE_NOT_FOUND;
        *certificate = found->second;
        return ERROR_SUCCESS;
    }
    SecretString content;
    const LONG error = ReadWholeFile(PathOf(name), kMaxFileSize, &content);
    if (error == ERROR_FILE_TOO_LARGE)
        return ERROR_INVALID_DATA;
    if (error != ERROR_SUCCESS)
        return error;
    const bool good = ParseCertificateFile(content, certificate) && FileNameOf(Sha1Of(certificate->der)) == name;
    return good ? ERROR_SUCCESS : ERROR_INVALID_DATA;
}

LONG CertificateStore::Rewrite(const std::string& name, const Change& change)
{
    if (readOnly_)
        return E_ACCESSDENIED;
    // The lock file is beside the directory, which holds only certificates.
    StoreLock lock;
    Check(lock.Acquire(directory_));
    Check(MakeDirectories(directory_));
    CertificateRecord certificate;
    const LONG loaded = Load(name, &certificate);
    bool changed = false;
    const LONG error = change(loaded, &certificate, &changed);
    if (error != ERROR_SUCCESS || !changed)
        return error;
    return ReplaceFile(PathOf(name), FormatCertificateFile(certificate));
}

LONG CertificateStore::Remove(const std::string& name)
{
    if (readOnly_)
        return E_ACCESSDENIED;
    StoreLock lock;
    Check(lock.Acquire(directory_));
    return unlink(PathOf(name).c_str()) == 0 || errno == ENOENT ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

std::string CertificateStore::FileNameOf(const std::string& sha1)
{
    return HexOf(sha1).append(kSuffix);
}
