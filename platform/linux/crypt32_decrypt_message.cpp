// CryptDecryptMessage: OpenSSL opens the message with the key of the container that the certificate names.
#include <limits.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <optional>
#include <string>

#include "platform/linux/certificate_context.h"
#include "platform/linux/der.h"
#include "platform/linux/file_store.h"
#include "platform/linux/openssl_errors.h"
#include "platform/linux/openssl_pointers.h"
#include "platform/linux/outcome.h"
#include "platform/linux/paths.h"
#include "platform/linux/text.h"
#include "platform/linux/two_call.h"
#include "platform/linux/win_private_keys.h"

namespace {

constexpr size_t kLargestKeyFile = 64 * 1024;

using MessagePointer = Owner<CMS_ContentInfo, CMS_ContentInfo_free>;
using ContextPointer = Owner<const CERT_CONTEXT, CertFreeCertificateContext>;

MessagePointer ReadMessage(const BYTE* encrypted, DWORD size)
{
    const BYTE* at = encrypted;
    MessagePointer message(d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(size)));
    return message && OBJ_obj2nid(CMS_get0_type(message.get())) == NID_pkcs7_enveloped ? std::move(message) : nullptr;
}

bool IsRecipient(CMS_ContentInfo* message, X509* certificate)
{
    STACK_OF(CMS_RecipientInfo)* const recipients = CMS_get0_RecipientInfos(message);
    for (int i = 0; i < sk_CMS_RecipientInfo_num(recipients); i++) {
        CMS_RecipientInfo* const recipient = sk_CMS_RecipientInfo_value(recipients, i);
        if (CMS_RecipientInfo_type(recipient) == CMS_RECIPINFO_TRANS &&
            CMS_RecipientInfo_ktri_cert_cmp(recipient, certificate) == 0)
            return true;
    }
    return false;
}

// False when the certificate names no container. A name never leads out of the folder.
bool ContainerFile(PCCERT_CONTEXT context, std::string* path)
{
    const std::optional<KeyProviderInfo> info = CertificateContext::From(context)->keyProvider();
    const std::string name = info ? ToUtf8(info->containerName) : "";
    if (name.empty() || name[0] == '.' || name.find_first_of("/\\") != std::string::npos)
        return false;
    const bool machine = (info->flags & CRYPT_MACHINE_KEYSET) != 0;
    *path = (machine ? RootDirectory() : UserDirectory()) + "/keycontainers/" + name + ".pem";
    return true;
}

// Never prompts: encrypted keys are not supported.
int NoPassword(char*, int, int, void*)
{
    return -1;
}

KeyPointer ReadContainer(const std::string& path)
{
    SecretString content;
    KeyPointer key;
    if (ReadWholeFile(path, kLargestKeyFile, &content) == ERROR_SUCCESS) {
        const BioPointer file(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
        key.reset(file ? PEM_read_bio_PrivateKey(file.get(), nullptr, NoPassword, nullptr) : nullptr);
    }
    return key;
}

// Maps OpenSSL's last errors: an unsupported cipher, or else a malformed message.
LONG CipherError()
{
    while (const unsigned long error = ERR_get_error()) {
        const int reason = ERR_GET_REASON(error);
        if (reason == ERR_R_UNSUPPORTED ||
            (ERR_GET_LIB(error) == ERR_LIB_CMS &&
             (reason == CMS_R_UNKNOWN_CIPHER || reason == CMS_R_UNSUPPORTED_CONTENT_ENCRYPTION_ALGORITHM)))
            return NTE_BAD_ALGID;
    }
    return NTE_BAD_DATA;
}

// Decrypts into our own block: CMS_decrypt would copy through a stack buffer that is never wiped.
// *plain must be as large as the message, which is larger than its content.
bool ReadContent(CMS_ContentInfo* message, SecretString* plain)
{
    const BioPointer content(CMS_dataInit(message, nullptr));
    if (!content)
        return false;
    size_t size = 0;
    int got;
    do {
        got = BIO_read(content.get(), plain->data() + size, static_cast<int>(plain->size() - size));
        size += got > 0 ? static_cast<size_t>(got) : 0;
    } while (got > 0 && size < plain->size());
    plain->resize(size);
    return BIO_get_cipher_status(content.get()) > 0;
}

LONG OpenMessage(CMS_ContentInfo* message, EVP_PKEY* key, X509* certificate, SecretString* plain)
{
    ERR_clear_error();
    const bool opened = CMS_decrypt_set1_pkey(message, key, certificate) == 1 && ReadContent(message, plain);
    return opened ? static_cast<LONG>(ERROR_SUCCESS) : CipherError();
}

// The message's content for one certificate; CRYPT_E_NO_DECRYPT_CERT when it is not for this one.
LONG OpenFor(PCCERT_CONTEXT context, CMS_ContentInfo* message, SecretString* plain)
{
    const BYTE* at = context->pbCertEncoded;
    const CertificatePointer certificate(d2i_X509(nullptr, &at, static_cast<long>(context->cbCertEncoded)));
    std::string path;
    if (!certificate || !IsRecipient(message, certificate.get()) || !ContainerFile(context, &path))
        return CRYPT_E_NO_DECRYPT_CERT;
    const KeyPointer key = ReadContainer(path);
    if (!key)
        return NTE_BAD_KEYSET;
    return OpenMessage(message, key.get(), certificate.get(), plain);
}

LONG OpenFromStores(const CRYPT_DECRYPT_MESSAGE_PARA& para, CMS_ContentInfo* message, SecretString* plain)
{
    for (DWORD i = 0; i < para.cCertStore; i++) {
        const HCERTSTORE store = para.rghCertStore[i];
        ContextPointer context(CertEnumCertificatesInStore(store, nullptr));
        for (; context; context.reset(CertEnumCertificatesInStore(store, context.release()))) {
            const LONG error = OpenFor(context.get(), message, plain);
            if (error != CRYPT_E_NO_DECRYPT_CERT)
                return error;
        }
    }
    return CRYPT_E_NO_DECRYPT_CERT;
}

}  // namespace

BOOL WINAPI CryptDecryptMessage(PCRYPT_DECRYPT_MESSAGE_PARA para, const BYTE* encrypted, DWORD encryptedSize,
                                BYTE* decrypted, DWORD* size, PCCERT_CONTEXT* recipient)
{
    if (!para || para->cbSize != sizeof *para || (para->cCertStore != 0 && !para->rghCertStore) || !encrypted || !size)
        return Fail(E_INVALIDARG);
    if ((para->dwMsgAndCertEncodingType & PKCS_7_ASN_ENCODING) == 0 || encryptedSize > INT_MAX)
        return Fail(E_INVALIDARG);
    if (recipient)
        return Fail(ERROR_NOT_SUPPORTED);
    return Succeeds([&]() -> LONG {
        const QuietOpenssl quiet;
        const MessagePointer message = ReadMessage(encrypted, encryptedSize);
        if (!message)
            return NTE_BAD_DATA;
        SecretString plain(encryptedSize, '\0');
        const LONG error = OpenFromStores(*para, message.get(), &plain);
        return error == ERROR_SUCCESS ? GiveOut(plain, decrypted, size) : error;
    });
}
