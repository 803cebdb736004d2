// Public keys: from the module's export blob to the formats that other programs read.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

// A curve, with its names in CNG, JSON Web Keys and DER.
struct Curve {
    const char* jwkName;  // P-256
    ULONG ecdsaMagic;
    ULONG ecdhMagic;
    size_t width;  // bytes of a coordinate
    Bytes objectId;
};

struct PublicKey {
    bool isRsa = false;
    Bytes modulus;   // RSA; no leading zeros
    Bytes exponent;  // likewise
    const Curve* curve = nullptr;
    Bytes x;  // of the curve's width
    Bytes y;
};

// Throws a failure if the blob is malformed or the curve is unknown.
PublicKey ParsePublicBlob(const Bytes& blob);

Bytes SubjectPublicKeyInfo(const PublicKey& key);
std::string PemText(const Bytes& der, const std::string& label);
// The content of the first such block from *at on, which moves past it. nullopt if there is none. Throws a usage
// failure that names the file if the block is damaged.
std::optional<Bytes> ReadPem(std::string_view text, const std::string& label, const std::string& fileName, size_t* at);
// kid: the key's name.
nlohmann::ordered_json JsonWebKey(const PublicKey& key, const std::string& kid);
// SHA-256 of the SubjectPublicKeyInfo, hexadecimal.
std::string Fingerprint(const PublicKey& key);

// "RSA 2048" or "P-256"
std::string Describe(const PublicKey& key);
size_t BitLength(const PublicKey& key);
// Members of an answer: "key", "bits" and "fingerprint".
void AddFacts(const PublicKey& key, nlohmann::ordered_json* object);

}  // namespace kelvaroctl
