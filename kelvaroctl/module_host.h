// The host's side of the module: loads it, keeps its table, and closes what it opened.
//
// Every refusal by the module is thrown as a Failure with its status. Calls on keys wait for the network.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "kelvaroctl/statuses.h"
#include "kelvaroctl/text.h"
#include "platform/cng_provider.h"

namespace kelvaroctl {

class Module {
  public:
    // path: empty for the module beside this program, else in the loader's path. Throws a configuration failure.
    explicit Module(const std::string& path);
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table() const { return *table_; }
    const std::string& path() const { return path_; }

  private:
    HMODULE handle_ = nullptr;
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table_ = nullptr;
    std::string path_;
};

class Provider {
  public:
    Provider(const std::string& modulePath, bool machine);
    ~Provider();
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;

    const Module& module() const { return module_; }
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table() const { return module_.table(); }
    NCRYPT_PROV_HANDLE handle() const { return handle_; }
    DWORD scopeFlag() const { return machine_ ? NCRYPT_MACHINE_KEY_FLAG : 0; }

    // nullopt when the provider does not have it.
    std::optional<Bytes> Property(const WCHAR* name) const;

    struct Algorithm {
        std::string name;
        DWORD interfaceClass;
        DWORD operations;
    };
    std::vector<Algorithm> Algorithms() const;

    // Calls `visit` with the name and the algorithm of each key, in the vault's order. What was visited before a
    // failure stays visited.
    using KeyVisitor = std::function<void(const std::string& name, const std::string& algorithm)>;
    void ForEachKey(const KeyVisitor& visit) const;

  private:
    Module module_;
    NCRYPT_PROV_HANDLE handle_ = 0;
    bool machine_;
};

class Key {
  public:
    // The provider must outlive the key.
    Key(const Provider& provider, const std::string& name);
    ~Key();
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    const std::string& name() const { return name_; }
    std::string AlgorithmName() const;
    // nullopt when the provider does not have it for this key.
    std::optional<Bytes> Property(const WCHAR* name) const;
    // RSAPUBLICBLOB or ECCPUBLICBLOB, whichever is the key's.
    Bytes PublicBlob() const;

    // padding and flags as the table's calls take them; room: for how many bytes of result.
    Bytes Sign(void* padding, const Bytes& digest, DWORD flags) const;
    bool Verify(void* padding, const Bytes& digest, const Bytes& signature, DWORD flags) const;
    Bytes Encrypt(const Bytes& input, size_t room, DWORD flags) const;
    Bytes Decrypt(const Bytes& input, size_t room, DWORD flags) const;

  private:
    void Check(Operation operation, SECURITY_STATUS status) const;
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table() const { return provider_.table(); }

    const Provider& provider_;
    NCRYPT_KEY_HANDLE handle_ = 0;
    std::string name_;
};

// Property values as they are in the bytes.
std::string PropertyText(const Bytes& value);
DWORD PropertyNumber(const Bytes& value);

}  // namespace kelvaroctl
