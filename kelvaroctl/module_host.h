// Wrappers for the provider's handles. Every error status is thrown as a Failure. Calls on keys wait for the network.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "kelvaroctl/owner.h"
#include "kelvaroctl/signature_algorithms.h"
#include "kelvaroctl/statuses.h"
#include "kelvaroctl/text.h"
#include "kelvaroctl/wait_notice.h"
#include "platform/cng_provider.h"
#include "platform/product.h"

namespace kelvaroctl {

// How the tool calls the provider: through a function table, from the module itself or from the platform's router.
struct ProviderBinding {
    Owner<std::remove_pointer_t<HMODULE>, FreeLibrary> module;  // NULL: the router chooses it
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
    std::string place = {};  // for messages: the module's path, or who chooses the module
};

// Loads the module. path: empty for the one beside this program or, if there is none, the installed one. Throws a
// configuration failure.
ProviderBinding LoadModule(const std::string& path);

// Uses the platform's key storage router, as other programs do. Throws a usage failure on systems without one. Each
// system has its own source, chosen by the build.
ProviderBinding OpenRouter();

// What the module allocated.
template <typename T>
using ModuleBlock = std::unique_ptr<T, decltype(NCRYPT_KEY_STORAGE_FUNCTION_TABLE::FreeBuffer)>;

class Provider {
  public:
    // notice: reports that a call is still waiting; may be NULL.
    Provider(ProviderBinding binding, bool machine, std::unique_ptr<WaitNotice> notice);
    ~Provider();

    const std::string& place() const { return binding_.place; }
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table() const { return *binding_.table; }
    NCRYPT_PROV_HANDLE handle() const { return handle_; }
    DWORD scopeFlag() const { return machine_ ? NCRYPT_MACHINE_KEY_FLAG : 0; }
    // A call has returned: the next wait begins.
    void Answered() const;

    // nullopt if the provider does not have it.
    std::optional<Bytes> Property(const WCHAR* name) const;
    DWORD NumberProperty(const WCHAR* name) const;  // 0 likewise
    std::string Version() const;                    // "1.0"

    struct Algorithm {
        std::string name;
        DWORD interfaceClass;
        DWORD operations;
    };
    std::vector<Algorithm> Algorithms() const;

    // Calls `visit` with the name and algorithm of each key, in the vault's order. A failure may come after some keys.
    using KeyVisitor = std::function<void(const std::string& name, const std::string& algorithm)>;
    void ForEachKey(const KeyVisitor& visit) const;
    // Only the names: the module reads the list and one key. Through the router it reads every key.
    std::vector<std::string> KeyNames() const;

  private:
    // NULL after the last key. state: of the enumeration, NULL for a new one.
    ModuleBlock<NCryptKeyName> NextKey(ModuleBlock<void>* state) const;
    void CheckListIsEmpty() const;

    ProviderBinding binding_;
    NCRYPT_PROV_HANDLE handle_ = 0;
    bool machine_;
    std::unique_ptr<WaitNotice> notice_;
};

class Key : NonCopyable {
  public:
    // The provider must outlive the key. Throws if the answer didn't come from the vault's service.
    Key(const Provider& provider, const std::string& name);
    ~Key();
    // A pending key, which Finalize() creates in the vault. overwrite: don't check whether the vault has a key of that
    // name.
    static Key Create(const Provider& provider, const std::string& name, const std::string& algorithm, bool overwrite);
    // A pending key from a private blob. name: empty for none; password: of an encrypted blob; subject: the key's name
    // in failures.
    static Key Import(const Provider& provider, const std::string& subject, const WCHAR* blobType, const Bytes& blob,
                      const std::string& name, std::string_view password);

    const std::string& name() const { return name_; }
    std::string AlgorithmName() const;
    // nullopt if the provider does not have it for this key.
    std::optional<Bytes> Property(const WCHAR* name) const;
    DWORD NumberProperty(const WCHAR* name) const;  // 0 likewise
    // RSAPUBLICBLOB or ECCPUBLICBLOB.
    Bytes PublicBlob() const;

    void SetLength(DWORD bits);
    void Finalize();
    // Deletes the key in the vault. Afterwards the object can only be destroyed.
    void Delete();

    Bytes Sign(const Padding& padding, const Bytes& digest) const;
    bool Verify(const Padding& padding, const Bytes& digest, const Bytes& signature) const;
    // operation: Encrypt or Decrypt. room: bytes for the result. flags: as in the function table.
    Bytes Crypt(Operation operation, const Bytes& input, size_t room, DWORD flags) const;

  private:
    Key(const Provider& provider, const std::string& name, NCRYPT_KEY_HANDLE handle);
    void Check(Operation operation, SECURITY_STATUS status) const;
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table() const { return provider_.table(); }

    const Provider& provider_;
    NCRYPT_KEY_HANDLE handle_ = 0;
    std::string name_;
};

// The names of the bits that are set.
struct BitName {
    DWORD bit;
    const char* name;
};
std::vector<std::string> NamesOfBits(DWORD bits, std::initializer_list<BitName> names);

}  // namespace kelvaroctl
