#include <openssl/rsa.h>

#include "kelvaroctl/der.h"
#include "kelvaroctl/doctor/signature_check.h"
#include "platform/linux/openssl_pointers.h"

namespace kelvaroctl {

bool IsSignatureOf(const Bytes& blob, const SignatureAlgorithm& algorithm, const Bytes& digest, const Bytes& signature)
{
    const Bytes info = SubjectPublicKeyInfo(ParsePublicBlob(blob));
    const unsigned char* at = info.data();
    const KeyPointer key(d2i_PUBKEY(nullptr, &at, static_cast<long>(info.size())));
    const Owner<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(key ? EVP_PKEY_CTX_new(key.get(), nullptr) : nullptr);
    if (!context || EVP_PKEY_verify_init(context.get()) != 1)
        return false;
    const bool curve = algorithm.family == SignatureFamily::Curve;
    const Bytes form = curve ? DerFromRawSignature(signature) : signature;
    if (!curve && (EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1 ||
                   EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) != 1))
        return false;
    return EVP_PKEY_verify(context.get(), form.data(), form.size(), digest.data(), digest.size()) == 1;
}

}  // namespace kelvaroctl
