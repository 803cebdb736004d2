// PKCS#10 certificate requests, and the alternative names in them.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "kelvaroctl/signature_algorithms.h"

namespace kelvaroctl {

// A name in a certificate in addition to its subject.
struct SubjectAltName {
    BYTE tag;       // of the choice in GeneralName
    Bytes content;  // without tag and length
};

// "dns:web01.contoso.com", "ip:10.0.0.1", "ip:2001:db8::1", "email:ops@contoso.com", "uri:https://contoso.com/"; the
// letter case of the prefix is ignored. Throws a usage failure for anything else.
SubjectAltName ParseSubjectAltName(const std::string& text);

struct RequestContent {
    Bytes subject;  // a name in DER; an empty sequence for none
    std::vector<SubjectAltName> names;
};

// Encodes a name like CN=web01, O="Acme, Inc." in DER. Throws a usage failure that quotes the faulty part. An empty
// text gives an empty name.
Bytes EncodeName(const std::string& text);

// The request in DER. RSA keys sign with PKCS#1 and SHA-256, curve keys with the hash of their curve's size.
// sign: has the vault sign a digest.
using DigestSigner = std::function<Bytes(const SignatureAlgorithm& algorithm, const Bytes& digest)>;
Bytes MakeRequest(const RequestContent& content, const PublicKey& key, const DigestSigner& sign);

}  // namespace kelvaroctl
