// PKCS#10 certificate requests.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "kelvaroctl/public_key.h"
#include "kelvaroctl/subject_alt_name.h"

namespace kelvaroctl {

// What goes into a request.
struct RequestContent {
    Bytes subject;  // a name in DER form, an empty sequence for none
    std::vector<SubjectAltName> names;
};

// A name in X.500 string form, CN=web01, O="Acme, Inc.", in DER form. Throws a usage failure that says where it went
// wrong. An empty text is an empty name.
Bytes EncodeName(const std::string& text);

// The whole request in DER form. RSA keys sign with PKCS#1 and SHA-256, curve keys with the hash of their curve's size.
// sign: gives the vault's signature over a digest, made with the hash of that name.
using DigestSigner = std::function<Bytes(const WCHAR* hash, const Bytes& digest)>;
Bytes MakeRequest(const RequestContent& content, const PublicKey& key, const DigestSigner& sign);

}  // namespace kelvaroctl
