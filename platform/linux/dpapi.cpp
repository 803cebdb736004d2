// Data protection: AES-256-GCM with one master key per scope. The protected form:
//
//     offset  bytes
//     0       4      "KDP1"
//     4       4      scope: 0 user, 1 machine           all numbers little-endian
//     8       16     master key identifier
//     24      12     nonce
//     36      4      size of the description in bytes
//     40             description, UTF-16
//                    encrypted data
//                    tag, 16 bytes
//
// The tag authenticates everything and the optional entropy.
#include <limits.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/sha.h>
#include <string.h>

#include <string>
#include <string_view>

#include "platform/linux/file_store.h"
#include "platform/linux/openssl_pointers.h"
#include "platform/linux/outcome.h"
#include "platform/linux/paths.h"
#include "platform/linux/text.h"
#include "platform/linux/win_crypt.h"

namespace {

constexpr size_t kKeySize = 32;
constexpr size_t kKeyIdSize = 16;
constexpr size_t kNonceSize = 12;
constexpr size_t kTagSize = 16;
constexpr size_t kMaxSize = INT_MAX / 2;
constexpr DWORD kUserScope = 0;
constexpr DWORD kMachineScope = 1;

struct Head {
    char magic[4];
    DWORD scope;
    BYTE keyId[kKeyIdSize];
    BYTE nonce[kNonceSize];
    DWORD cbDescription;
};
static_assert(sizeof(Head) == 40, "the head has no padding");
constexpr char kMagic[4] = {'K', 'D', 'P', '1'};

struct MasterKey {
    BYTE bytes[kKeySize];
    BYTE id[kKeyIdSize];
    ~MasterKey() { SecureZeroMemory(bytes, sizeof bytes); }
};

using CipherContext = Owner<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;

template <typename T>
using LocalBlock = Owner<T, LocalFree>;

template <typename T>
LocalBlock<T> NewLocal(size_t size)
{
    return LocalBlock<T>(static_cast<T*>(LocalAlloc(LMEM_FIXED, size)));
}

// The key's identifier in blobs: a digest that reveals nothing about the key.
bool NameKey(MasterKey* key)
{
    BYTE digest[SHA256_DIGEST_LENGTH];
    SecretString labelled("kelvaro master key");
    labelled.append(reinterpret_cast<const char*>(key->bytes), kKeySize);
    const bool done = EVP_Digest(labelled.data(), labelled.size(), digest, nullptr, EVP_sha256(), nullptr) == 1;
    memcpy(key->id, digest, kKeyIdSize);
    return done;
}

LONG ReadMasterKey(const std::string& path, MasterKey* key)
{
    SecretString content;
    LONG error = ReadWholeFile(path, kKeySize, &content);
    if (error == ERROR_FILE_TOO_LARGE || (error == ERROR_SUCCESS && content.size() != kKeySize))
        error = NTE_BAD_KEYSET;
    if (error == ERROR_SUCCESS) {
        memcpy(key->bytes, content.data(), kKeySize);
        if (!NameKey(key))
            error = ERROR_INTERNAL_ERROR;
    }
    return error;
}

std::string MasterKeyFile(DWORD scope)
{
    return (scope == kMachineScope ? RootDirectory() : UserDirectory()) + "/dpapi/master.key";
}

// Creates the key if there is none. A damaged key file is kept: its data may still be recoverable.
LONG ReadOrMakeMasterKey(DWORD scope, MasterKey* key)
{
    const std::string path = MasterKeyFile(scope);
    LONG error = ReadMasterKey(path, key);
    if (error != ERROR_FILE_NOT_FOUND)
        return error;
    StoreLock lock;
    Check(lock.Acquire(path));
    error = ReadMasterKey(path, key);
    if (error != ERROR_FILE_NOT_FOUND)
        return error;
    if (RAND_priv_bytes(key->bytes, kKeySize) != 1 || !NameKey(key))
        return ERROR_INTERNAL_ERROR;
    return ReplaceFile(path, std::string_view(reinterpret_cast<const char*>(key->bytes), kKeySize));
}

// Common to both directions: a context with key, nonce and authenticated data.
CipherContext StartCipher(bool encrypts, const MasterKey& key, const BYTE* head, size_t headSize,
                          const DATA_BLOB* entropy)
{
    CipherContext context(EVP_CIPHER_CTX_new());
    const BYTE* nonce = head + offsetof(Head, nonce);
    int length = 0;
    bool good = context &&
                EVP_CipherInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.bytes, nonce, encrypts ? 1 : 0) == 1 &&
                EVP_CipherUpdate(context.get(), nullptr, &length, head, static_cast<int>(headSize)) == 1;
    if (good && entropy && entropy->cbData > 0)
        good =
            EVP_CipherUpdate(context.get(), nullptr, &length, entropy->pbData, static_cast<int>(entropy->cbData)) == 1;
    return good ? std::move(context) : nullptr;
}

bool IsUsable(const DATA_BLOB* blob)
{
    return blob->cbData <= kMaxSize && (blob->pbData || blob->cbData == 0);
}

void TestArguments(const DATA_BLOB* data, const DATA_BLOB* entropy, const void* reserved,
                   const CRYPTPROTECT_PROMPTSTRUCT* prompt, const DATA_BLOB* out)
{
    if (!data || !data->pbData || !out || reserved || !IsUsable(data) || (entropy && !IsUsable(entropy)))
        throw Failure(ERROR_INVALID_PARAMETER);
    // No user interface.
    if (prompt && prompt->dwPromptFlags != 0)
        throw Failure(ERROR_NOT_SUPPORTED);
}

LONG Protect(const DATA_BLOB& data, std::u16string_view description, const DATA_BLOB* entropy, DWORD scope,
             DATA_BLOB* out)
{
    MasterKey key;
    Check(ReadOrMakeMasterKey(scope, &key));
    Head head;
    memcpy(head.magic, kMagic, sizeof kMagic);
    head.scope = scope;
    memcpy(head.keyId, key.id, kKeyIdSize);
    if (RAND_bytes(head.nonce, kNonceSize) != 1)
        return ERROR_INTERNAL_ERROR;
    head.cbDescription = static_cast<DWORD>(description.size() * sizeof(char16_t));
    const size_t headSize = sizeof head + head.cbDescription;
    const size_t size = headSize + data.cbData + kTagSize;
    LocalBlock<BYTE> blob = NewLocal<BYTE>(size);
    if (!blob)
        return ERROR_NOT_ENOUGH_MEMORY;
    memcpy(blob.get(), &head, sizeof head);
    memcpy(blob.get() + sizeof head, description.data(), head.cbDescription);

    const CipherContext context = StartCipher(true, key, blob.get(), headSize, entropy);
    BYTE* body = blob.get() + headSize;
    int length = 0;
    if (!context || EVP_EncryptUpdate(context.get(), body, &length, data.pbData, static_cast<int>(data.cbData)) != 1 ||
        EVP_EncryptFinal_ex(context.get(), body + length, &length) != 1 ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, kTagSize, body + data.cbData) != 1)
        return ERROR_INTERNAL_ERROR;
    out->cbData = static_cast<DWORD>(size);
    out->pbData = blob.release();
    return ERROR_SUCCESS;
}

// Reads the head of a protected blob and checks what can be checked without the key.
bool ReadHead(const DATA_BLOB& data, Head* head)
{
    if (data.cbData < sizeof *head + kTagSize)
        return false;
    memcpy(head, data.pbData, sizeof *head);
    const size_t room = data.cbData - sizeof *head - kTagSize;
    return memcmp(head->magic, kMagic, sizeof kMagic) == 0 && head->scope <= kMachineScope &&
           head->cbDescription <= room && head->cbDescription % sizeof(char16_t) == 0;
}

LONG MasterKeyOf(const Head& head, MasterKey* key)
{
    const LONG error = ReadMasterKey(MasterKeyFile(head.scope), key);
    if (error == ERROR_FILE_NOT_FOUND || (error == ERROR_SUCCESS && memcmp(key->id, head.keyId, kKeyIdSize) != 0))
        return NTE_BAD_KEY_STATE;
    return error;
}

LONG Unprotect(const DATA_BLOB& data, LPWSTR* description, const DATA_BLOB* entropy, DATA_BLOB* out)
{
    Head head;
    if (!ReadHead(data, &head))
        return ERROR_INVALID_DATA;
    MasterKey key;
    Check(MasterKeyOf(head, &key));
    const size_t headSize = sizeof head + head.cbDescription;
    const size_t size = data.cbData - headSize - kTagSize;
    LocalBlock<BYTE> plain = NewLocal<BYTE>(size);
    LocalBlock<WCHAR> text = NewLocal<WCHAR>(head.cbDescription + sizeof(WCHAR));
    if (!plain || !text)
        return ERROR_NOT_ENOUGH_MEMORY;

    const CipherContext context = StartCipher(false, key, data.pbData, headSize, entropy);
    BYTE tag[kTagSize];
    memcpy(tag, data.pbData + headSize + size, kTagSize);
    int length = 0;
    if (!context)
        return ERROR_INTERNAL_ERROR;
    if (EVP_DecryptUpdate(context.get(), plain.get(), &length, data.pbData + headSize, static_cast<int>(size)) != 1 ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, kTagSize, tag) != 1 ||
        EVP_DecryptFinal_ex(context.get(), plain.get() + length, &length) != 1) {
        SecureZeroMemory(plain.get(), size);
        return ERROR_INVALID_DATA;
    }
    if (description) {
        memcpy(text.get(), data.pbData + sizeof head, head.cbDescription);
        text.get()[head.cbDescription / sizeof(WCHAR)] = 0;
        *description = text.release();
    }
    out->cbData = static_cast<DWORD>(size);
    out->pbData = plain.release();
    return ERROR_SUCCESS;
}

}  // namespace

BOOL WINAPI CryptProtectData(DATA_BLOB* data, LPCWSTR description, DATA_BLOB* entropy, PVOID reserved,
                             CRYPTPROTECT_PROMPTSTRUCT* prompt, DWORD flags, DATA_BLOB* out)
{
    return Succeeds([&]() -> LONG {
        TestArguments(data, entropy, reserved, prompt, out);
        if (ViewOf(description).size() > kMaxSize / 4)
            return ERROR_INVALID_PARAMETER;
        const DWORD scope = (flags & CRYPTPROTECT_LOCAL_MACHINE) != 0 ? kMachineScope : kUserScope;
        return Protect(*data, ViewOf(description), entropy, scope, out);
    });
}

BOOL WINAPI CryptUnprotectData(DATA_BLOB* data, LPWSTR* description, DATA_BLOB* entropy, PVOID reserved,
                               CRYPTPROTECT_PROMPTSTRUCT* prompt, DWORD, DATA_BLOB* out)
{
    return Succeeds([&] {
        TestArguments(data, entropy, reserved, prompt, out);
        return Unprotect(*data, description, entropy, out);
    });
}
