#include "kelvaroctl/module_host.h"

#include "platform/enumeration.h"

namespace kelvaroctl {

// Characters of the longest name that fits the vault's encoding.
constexpr size_t kLongestName = 42;

namespace {
void Require(Operation operation, SECURITY_STATUS status, const std::string& subject = "")
{
    if (status != ERROR_SUCCESS)
        throw StatusFailure(operation, status, subject);
}

// Queries the size, then reads the value. nullopt for NTE_NOT_SUPPORTED.
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
    Require(operation, status, subject);
    return value;
}
}  // namespace

Provider::Provider(ProviderBinding binding, bool machine, std::unique_ptr<WaitNotice> notice)
    : binding_(std::move(binding)), machine_(machine), notice_(std::move(notice))
{
    Require(Operation::OpenProvider, table().OpenProvider(&handle_, kProviderName, 0));
}

Provider::~Provider()
{
    table().FreeProvider(handle_);
}

void Provider::Answered() const
{
    if (notice_)
        notice_->Restart();
}

std::optional<Bytes> Provider::Property(const WCHAR* name) const
{
    return ReadInTwoCalls(Operation::ReadProviderProperty, ToNarrow(name), [&](BYTE* output, DWORD room, DWORD* size) {
        return table().GetProviderProperty(handle_, name, output, room, size, 0);
    });
}

DWORD Provider::NumberProperty(const WCHAR* name) const
{
    return WordIn(Property(name).value_or(Bytes()));
}

std::string Provider::Version() const
{
    const DWORD version = NumberProperty(NCRYPT_VERSION_PROPERTY);
    return std::to_string(version >> 16) + "." + std::to_string(version & 0xFFFF);
}

std::vector<Provider::Algorithm> Provider::Algorithms() const
{
    NCryptAlgorithmName* rows = nullptr;
    DWORD count = 0;
    Require(Operation::ListAlgorithms, table().EnumAlgorithms(handle_, 0, &count, &rows, 0));
    const ModuleBlock<NCryptAlgorithmName> block(rows, table().FreeBuffer);
    std::vector<Algorithm> algorithms;
    for (DWORD row = 0; row < count; ++row)
        algorithms.push_back({ToNarrow(rows[row].pszName), rows[row].dwClass, rows[row].dwAlgOperations});
    return algorithms;
}

ModuleBlock<NCryptKeyName> Provider::NextKey(ModuleBlock<void>* state) const
{
    NCryptKeyName* found = nullptr;
    void* block = state->release();
    const SECURITY_STATUS status = table().EnumKeys(handle_, nullptr, &found, &block, scopeFlag());
    state->reset(block);
    Answered();
    if (status == NTE_NO_MORE_ITEMS)
        return {nullptr, table().FreeBuffer};
    Require(Operation::ListKeys, status);
    return {found, table().FreeBuffer};
}

// The module treats a list that isn't JSON as empty, and a key that isn't JSON as one without content.
void Provider::CheckListIsEmpty() const
{
    try {
        const Key key(*this, "kelvaroctl-no-such-key");
    } catch (const Failure& failure) {
        if (failure.code() == kForeignAnswer)
            throw ForeignAnswerFailure("list the keys");
        if (failure.status != NTE_NOT_FOUND)
            throw;
    }
}

void Provider::ForEachKey(const KeyVisitor& visit) const
{
    // The names point into the state, which must be freed last.
    ModuleBlock<void> state(nullptr, table().FreeBuffer);
    while (const auto found = NextKey(&state))
        visit(ToNarrow(found->pszName), ToNarrow(found->pszAlgid));
    if (!state)
        CheckListIsEmpty();
}

std::vector<std::string> Provider::KeyNames() const
{
    std::vector<std::string> names;
    ModuleBlock<void> state(nullptr, table().FreeBuffer);
    const auto found = NextKey(&state);
    if (!found) {
        CheckListIsEmpty();
        return names;
    }
    // The state is the module's own block, unless it is the router's.
    auto* const snapshot = static_cast<KSP_ENUM_STATE*>(state.get());
    if (!binding_.module || snapshot->index != 1 || snapshot->names()[0] != found->pszName) {
        ForEachKey([&](const std::string& name, const std::string&) { names.push_back(name); });
        return names;
    }
    names.reserve(snapshot->count);
    for (DWORD index = 0; index < snapshot->count; ++index)
        names.push_back(ToNarrow(snapshot->names()[index]));
    return names;
}

static WideText KeyName(const std::string& name)
{
    WideText wide = ToWide(name);
    if (wide.empty() || wide.size() > kLongestName) {
        throw UsageFailure("a key's name has 1 to " + std::to_string(kLongestName) + " characters; '" + name +
                           "' has " + std::to_string(wide.size()));
    }
    return wide;
}

Key::Key(const Provider& provider, const std::string& name) : Key(provider, name, 0)
{
    const WideText wide = KeyName(name);
    Check(Operation::OpenKey, table().OpenKey(provider.handle(), &handle_, wide.c_str(), 0, provider.scopeFlag()));
    // The module treats an answer that isn't JSON as an RSA key without a modulus.
    if (AlgorithmName() == "RSA" && !NumberProperty(NCRYPT_LENGTH_PROPERTY))
        throw ForeignAnswerFailure("open the key '" + name + "'");
}

Key::Key(const Provider& provider, const std::string& name, NCRYPT_KEY_HANDLE handle)
    : provider_(provider), handle_(handle), name_(name)
{
}

Key Key::Create(const Provider& provider, const std::string& name, const std::string& algorithm, bool overwrite)
{
    const WideText wide = KeyName(name);
    const DWORD flags = provider.scopeFlag() | (overwrite ? NCRYPT_OVERWRITE_KEY_FLAG : 0);
    NCRYPT_KEY_HANDLE handle = 0;
    Require(Operation::CreateKey,
            provider.table().CreatePersistedKey(provider.handle(), &handle, ToWide(algorithm).c_str(), wide.c_str(), 0,
                                                flags),
            name);
    return Key(provider, name, handle);
}

Key Key::Import(const Provider& provider, const std::string& subject, const WCHAR* blobType, const Bytes& blob,
                const std::string& name, std::string_view password)
{
    WideText wideName = name.empty() ? WideText() : KeyName(name);
    SecretText secret = ToWideSecret(password);
    const auto buffer = [](DWORD type, auto& text) {
        return NCryptBuffer{static_cast<ULONG>((text.size() + 1) * sizeof(WCHAR)), type, text.data()};
    };
    std::vector<NCryptBuffer> buffers = {buffer(NCRYPTBUFFER_PKCS_SECRET, secret)};
    if (!name.empty())
        buffers.push_back(buffer(NCRYPTBUFFER_PKCS_KEY_NAME, wideName));
    NCryptBufferDesc parameters = {NCRYPTBUFFER_VERSION, static_cast<ULONG>(buffers.size()), buffers.data()};
    NCRYPT_KEY_HANDLE handle = 0;
    Require(
        Operation::ImportKey,
        provider.table().ImportKey(provider.handle(), 0, blobType, &parameters, &handle, const_cast<BYTE*>(blob.data()),
                                   static_cast<DWORD>(blob.size()), NCRYPT_DO_NOT_FINALIZE_FLAG),
        subject);
    return Key(provider, name.empty() ? subject : name, handle);
}

Key::~Key()
{
    if (handle_)
        table().FreeKey(provider_.handle(), handle_);
}

void Key::SetLength(DWORD bits)
{
    Check(Operation::SetLength, table().SetKeyProperty(provider_.handle(), handle_, NCRYPT_LENGTH_PROPERTY,
                                                       reinterpret_cast<BYTE*>(&bits), sizeof(bits), 0));
}

void Key::Finalize()
{
    Check(Operation::FinalizeKey, table().FinalizeKey(provider_.handle(), handle_, 0));
}

void Key::Delete()
{
    Check(Operation::DeleteKey, table().DeleteKey(provider_.handle(), handle_, 0));
    handle_ = 0;
}

void Key::Check(Operation operation, SECURITY_STATUS status) const
{
    provider_.Answered();
    Require(operation, status, name_);
}

std::optional<Bytes> Key::Property(const WCHAR* name) const
{
    return ReadInTwoCalls(Operation::ReadKeyProperty, ToNarrow(name), [&](BYTE* output, DWORD room, DWORD* size) {
        return table().GetKeyProperty(provider_.handle(), handle_, name, output, room, size, 0);
    });
}

DWORD Key::NumberProperty(const WCHAR* name) const
{
    return WordIn(Property(name).value_or(Bytes()));
}

std::string Key::AlgorithmName() const
{
    return ToNarrow(TextIn(Property(NCRYPT_ALGORITHM_PROPERTY).value_or(Bytes())));
}

Bytes Key::PublicBlob() const
{
    const WCHAR* const type = AlgorithmName() == "RSA" ? BCRYPT_RSAPUBLIC_BLOB : BCRYPT_ECCPUBLIC_BLOB;
    auto blob = ReadInTwoCalls(Operation::ExportKey, name_, [&](BYTE* output, DWORD room, DWORD* size) {
        return table().ExportKey(provider_.handle(), handle_, 0, type, nullptr, output, room, size, 0);
    });
    if (!blob)
        throw StatusFailure(Operation::ExportKey, NTE_NOT_SUPPORTED, name_);
    return std::move(*blob);
}

Bytes Key::Sign(const Padding& padding, const Bytes& digest) const
{
    Bytes signature;
    DWORD size = 0;
    const auto call = [&](BYTE* output) {
        Check(Operation::Sign,
              table().SignHash(provider_.handle(), handle_, padding.info, const_cast<BYTE*>(digest.data()),
                               static_cast<DWORD>(digest.size()), output, size, &size, padding.flags));
        signature.resize(size);
    };
    call(nullptr);
    call(signature.data());
    return signature;
}

bool Key::Verify(const Padding& padding, const Bytes& digest, const Bytes& signature) const
{
    const SECURITY_STATUS status = table().VerifySignature(
        provider_.handle(), handle_, padding.info, const_cast<BYTE*>(digest.data()), static_cast<DWORD>(digest.size()),
        const_cast<BYTE*>(signature.data()), static_cast<DWORD>(signature.size()), padding.flags);
    if (status == NTE_BAD_SIGNATURE)
        return false;
    Check(Operation::Verify, status);
    return true;
}

// One call with a large enough buffer: a size query would cost a second operation of the vault.
Bytes Key::Crypt(Operation operation, const Bytes& input, size_t room, DWORD flags) const
{
    const auto call = operation == Operation::Encrypt ? table().Encrypt : table().Decrypt;
    Bytes output(room);
    DWORD size = static_cast<DWORD>(room);
    Check(operation, call(provider_.handle(), handle_, const_cast<BYTE*>(input.data()),
                          static_cast<DWORD>(input.size()), nullptr, output.data(), size, &size, flags));
    output.resize(size);
    return output;
}

std::vector<std::string> NamesOfBits(DWORD bits, std::initializer_list<BitName> names)
{
    std::vector<std::string> found;
    for (const BitName& row : names) {
        if (bits & row.bit)
            found.emplace_back(row.name);
    }
    return found;
}

}  // namespace kelvaroctl
