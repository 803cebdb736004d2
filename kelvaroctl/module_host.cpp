#include "kelvaroctl/module_host.h"

#include <cstring>
#include <filesystem>

#include "kelvaroctl/places.h"

namespace kelvaroctl {

namespace fs = std::filesystem;

static const WCHAR kProviderName[] = TEXT("Zandrel Key Storage Provider for Key Vault");
// The longest name that has a form in the vault.
constexpr size_t kLongestName = 42;

// The module beside this program, or its bare name for the loader to find.
static std::string DefaultModule()
{
    std::vector<WCHAR> path(4096);
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length && length < path.size()) {
        const fs::path beside = fs::u8path(ToNarrow(path.data())).parent_path() / kModuleFile;
        std::error_code ignored;
        if (fs::exists(beside, ignored))
            return beside.u8string();
    }
    return kModuleFile;
}

Module::Module(const std::string& path) : path_(path.empty() ? DefaultModule() : path)
{
    // A file beside the working directory is named with a folder, or the loader would look for it elsewhere.
    if (!path.empty())
        path_ = fs::absolute(fs::u8path(path)).u8string();
    handle_ = LoadLibraryW(ToWide(path_).c_str());
    if (!handle_)
        throw ConfigurationFailure("cannot load the module " + path_ + ": " + LoaderMessage(GetLastError()));
    const auto getInterface = reinterpret_cast<GetKeyStorageInterfaceFn>(
        reinterpret_cast<void (*)()>(GetProcAddress(handle_, "GetKeyStorageInterface")));
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
    if (!getInterface || getInterface(kProviderName, &table, 0) != 0 || !table) {
        FreeLibrary(handle_);
        throw ConfigurationFailure(path_ + " is no key storage provider");
    }
    if (table->Version.MajorVersion != 1) {
        FreeLibrary(handle_);
        throw ConfigurationFailure(path_ + " has version " + std::to_string(table->Version.MajorVersion) +
                                   " of the provider interface, and this tool knows version 1");
    }
    table_ = table;
}

Module::~Module()
{
    FreeLibrary(handle_);
}

namespace {
// A block that the module handed out.
class ModuleBlock {
  public:
    explicit ModuleBlock(const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table) : table_(table) {}
    ~ModuleBlock() { Reset(); }
    ModuleBlock(const ModuleBlock&) = delete;
    ModuleBlock& operator=(const ModuleBlock&) = delete;

    void Reset()
    {
        if (block_)
            table_.FreeBuffer(block_);
        block_ = nullptr;
    }
    void*& block() { return block_; }

  private:
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table_;
    void* block_ = nullptr;
};

// Asks for a size, then for that many bytes. nullopt for NTE_NOT_SUPPORTED.
template <typename Read>
std::optional<Bytes> ReadInTwoCalls(Operation operation, const std::string& subject, Read read)
{
    DWORD size = 0;
    SECURITY_STATUS status = read(nullptr, 0, &size);
    Bytes value(size);
    if (status == ERROR_SUCCESS && size) {
        status = read(value.data(), size, &size);
        value.resize(size);
    }
    if (status == NTE_NOT_SUPPORTED)
        return std::nullopt;
    if (status != ERROR_SUCCESS)
        throw StatusFailure(operation, status, subject);
    return value;
}
}  // namespace

Provider::Provider(const std::string& modulePath, bool machine) : module_(modulePath), machine_(machine)
{
    const SECURITY_STATUS status = table().OpenProvider(&handle_, kProviderName, 0);
    if (status != ERROR_SUCCESS)
        throw StatusFailure(Operation::OpenProvider, status, "");
}

Provider::~Provider()
{
    table().FreeProvider(handle_);
}

std::optional<Bytes> Provider::Property(const WCHAR* name) const
{
    return ReadInTwoCalls(Operation::ReadProviderProperty, ToNarrow(name), [&](BYTE* output, DWORD room, DWORD* size) {
        return table().GetProviderProperty(handle_, name, output, room, size, 0);
    });
}

std::vector<Provider::Algorithm> Provider::Algorithms() const
{
    NCryptAlgorithmName* rows = nullptr;
    DWORD count = 0;
    const SECURITY_STATUS status = table().EnumAlgorithms(handle_, 0, &count, &rows, 0);
    if (status != ERROR_SUCCESS)
        throw StatusFailure(Operation::ListAlgorithms, status, "");
    ModuleBlock block(table());
    block.block() = rows;
    std::vector<Algorithm> algorithms;
    for (DWORD row = 0; row < count; ++row)
        algorithms.push_back({ToNarrow(rows[row].pszName), rows[row].dwClass, rows[row].dwAlgOperations});
    return algorithms;
}

void Provider::ForEachKey(const KeyVisitor& visit) const
{
    // The names of the blocks stand in the state, which therefore goes last.
    ModuleBlock state(table());
    for (;;) {
        NCryptKeyName* found = nullptr;
        const SECURITY_STATUS status = table().EnumKeys(handle_, nullptr, &found, &state.block(), scopeFlag());
        if (status == NTE_NO_MORE_ITEMS)
            return;
        if (status != ERROR_SUCCESS)
            throw StatusFailure(Operation::ListKeys, status, "");
        ModuleBlock block(table());
        block.block() = found;
        visit(ToNarrow(found->pszName), ToNarrow(found->pszAlgid));
    }
}

Key::Key(const Provider& provider, const std::string& name) : provider_(provider), name_(name)
{
    const WideText wide = ToWide(name);
    if (wide.empty() || wide.size() > kLongestName) {
        throw UsageFailure("a key's name has 1 to " + std::to_string(kLongestName) + " characters, and '" + name +
                           "' has " + std::to_string(wide.size()));
    }
    Check(Operation::OpenKey, table().OpenKey(provider.handle(), &handle_, wide.c_str(), 0, provider.scopeFlag()));
}

Key::~Key()
{
    table().FreeKey(provider_.handle(), handle_);
}

void Key::Check(Operation operation, SECURITY_STATUS status) const
{
    if (status != ERROR_SUCCESS)
        throw StatusFailure(operation, status, name_);
}

std::optional<Bytes> Key::Property(const WCHAR* name) const
{
    return ReadInTwoCalls(Operation::ReadKeyProperty, ToNarrow(name), [&](BYTE* output, DWORD room, DWORD* size) {
        return table().GetKeyProperty(provider_.handle(), handle_, name, output, room, size, 0);
    });
}

std::string Key::AlgorithmName() const
{
    return PropertyText(Property(NCRYPT_ALGORITHM_PROPERTY).value_or(Bytes()));
}

Bytes Key::PublicBlob() const
{
    const WCHAR* const type = AlgorithmName() == "RSA" ? BCRYPT_RSAPUBLIC_BLOB : BCRYPT_ECCPUBLIC_BLOB;
    const auto blob = ReadInTwoCalls(Operation::ExportKey, name_, [&](BYTE* output, DWORD room, DWORD* size) {
        return table().ExportKey(provider_.handle(), handle_, 0, type, nullptr, output, room, size, 0);
    });
    if (!blob)
        throw StatusFailure(Operation::ExportKey, NTE_NOT_SUPPORTED, name_);
    return *blob;
}

Bytes Key::Sign(void* padding, const Bytes& digest, DWORD flags) const
{
    BYTE* const input = const_cast<BYTE*>(digest.data());
    const DWORD inputSize = static_cast<DWORD>(digest.size());
    DWORD size = 0;
    Check(Operation::Sign,
          table().SignHash(provider_.handle(), handle_, padding, input, inputSize, nullptr, 0, &size, flags));
    Bytes signature(size);
    Check(Operation::Sign, table().SignHash(provider_.handle(), handle_, padding, input, inputSize, signature.data(),
                                            size, &size, flags));
    signature.resize(size);
    return signature;
}

bool Key::Verify(void* padding, const Bytes& digest, const Bytes& signature, DWORD flags) const
{
    const SECURITY_STATUS status = table().VerifySignature(
        provider_.handle(), handle_, padding, const_cast<BYTE*>(digest.data()), static_cast<DWORD>(digest.size()),
        const_cast<BYTE*>(signature.data()), static_cast<DWORD>(signature.size()), flags);
    if (status == NTE_BAD_SIGNATURE)
        return false;
    Check(Operation::Verify, status);
    return true;
}

// One call with enough room: a question for the size would be a second operation of the vault.
Bytes Key::Encrypt(const Bytes& input, size_t room, DWORD flags) const
{
    Bytes output(room);
    DWORD size = static_cast<DWORD>(room);
    Check(Operation::Encrypt,
          table().Encrypt(provider_.handle(), handle_, const_cast<BYTE*>(input.data()),
                          static_cast<DWORD>(input.size()), nullptr, output.data(), size, &size, flags));
    output.resize(size);
    return output;
}

Bytes Key::Decrypt(const Bytes& input, size_t room, DWORD flags) const
{
    Bytes output(room);
    DWORD size = static_cast<DWORD>(room);
    Check(Operation::Decrypt,
          table().Decrypt(provider_.handle(), handle_, const_cast<BYTE*>(input.data()),
                          static_cast<DWORD>(input.size()), nullptr, output.data(), size, &size, flags));
    output.resize(size);
    return output;
}

std::string PropertyText(const Bytes& value)
{
    WideText text(value.size() / sizeof(WCHAR), 0);
    if (!text.empty())
        std::memcpy(text.data(), value.data(), text.size() * sizeof(WCHAR));
    return ToNarrow(text.substr(0, text.find(WCHAR{0})));
}

DWORD PropertyNumber(const Bytes& value)
{
    DWORD number = 0;
    if (value.size() >= sizeof(number))
        std::memcpy(&number, value.data(), sizeof(number));
    return number;
}

}  // namespace kelvaroctl
