// The host's side of the provider: its objects, closed when they go.
//
// Every refusal by the module is thrown as a Failure with its status. Calls on keys wait for the network.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "kelvaroctl/road.h"
#include "kelvaroctl/statuses.h"
#include "kelvaroctl/text.h"
#include "platform/product.h"

namespace kelvaroctl {

class Provider {
  public:
    Provider(std::unique_ptr<Road> road, bool machine);
    ~Provider();
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;

    const Road& road() const { return *road_; }
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table() const { return road_->table(); }
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
    std::unique_ptr<Road> road_;
    NCRYPT_PROV_HANDLE handle_ = 0;
    bool machine_;
};

class Key {
  public:
    // The provider must outlive the key.
    Key(const Provider& provider, const std::string& name);
    ~Key();
    // A key that is nowhere but here until Finalize() makes it in the vault. overwrite: without a look whether the
    // vault has a key of that name.
    static Key Create(const Provider& provider, const std::string& name, const std::string& algorithm, bool overwrite);
    // A key from a private blob, pending like a created one. name: empty for none; password: for an encrypted blob.
    // subject: what the key is called in failures.
    static Key Import(const Provider& provider, const std::string& subject, const WCHAR* blobType, const Bytes& blob,
                      const std::string& name, const std::string& password);
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    const std::string& name() const { return name_; }
    std::string AlgorithmName() const;
    // nullopt when the provider does not have it for this key.
    std::optional<Bytes> Property(const WCHAR* name) const;
    // RSAPUBLICBLOB or ECCPUBLICBLOB, whichever is the key's.
    Bytes PublicBlob() const;

    void SetLength(DWORD bits);
    void Finalize();
    // From the vault. The key is not used any more afterwards.
    void Delete();

    // padding and flags as the table's calls take them; room: for how many bytes of result.
    Bytes Sign(void* padding, const Bytes& digest, DWORD flags) const;
    bool Verify(void* padding, const Bytes& digest, const Bytes& signature, DWORD flags) const;
    Bytes Encrypt(const Bytes& input, size_t room, DWORD flags) const;
    Bytes Decrypt(const Bytes& input, size_t room, DWORD flags) const;

  private:
    Key(const Provider& provider, const std::string& name, NCRYPT_KEY_HANDLE handle);
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
