// A certificate store: a directory with one file per certificate, named after the SHA-1 hash of its DER bytes, or the
// same in memory. Reference-counted: its handle holds one reference, and so does each of its contexts.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/linux/certificate_file.h"
#include "platform/linux/ref_counted.h"
#include "platform/linux/win_types.h"

class CertificateStore : public RefCounted {
  public:
    CertificateStore(std::string directory, bool readOnly) : directory_(std::move(directory)), readOnly_(readOnly) {}
    // In memory, read-only; by file name.
    explicit CertificateStore(std::map<std::string, CertificateRecord> memory)
        : memory_(std::move(memory)), readOnly_(true)
    {
    }

    // The names of its files, sorted; some may be damaged.
    LONG List(std::vector<std::string>* names) const;

    // ERROR_FILE_NOT_FOUND; ERROR_INVALID_DATA: the file is damaged.
    LONG Load(const std::string& name, CertificateRecord* certificate) const;

    // Changes a file while no other process does. `change` gets Load's result and certificate; if it sets
    // *changed, *certificate is written. If it fails, its error is the result and nothing is written.
    // E_ACCESSDENIED: the store is read-only.
    using Change = std::function<LONG(LONG loaded, CertificateRecord* certificate, bool* changed)>;
    LONG Rewrite(const std::string& name, const Change& change);

    // A file that is already gone is not an error.
    LONG Remove(const std::string& name);

    static std::string FileNameOf(const std::string& sha1);

  private:
    std::string PathOf(const std::string& name) const { return directory_ + "/" + name; }

    const std::string directory_;  // empty for a store in memory
    const std::map<std::string, CertificateRecord> memory_;
    const bool readOnly_;
};
