#include "kelvaroctl/signature_algorithms.h"

#include "kelvaroctl/failure.h"

namespace kelvaroctl {

static const Bytes kSha256WithRsa = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0B};
static const Bytes kEcdsaWithSha256 = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03, 0x02};
static const Bytes kEcdsaWithSha384 = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03, 0x03};
static const Bytes kEcdsaWithSha512 = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03, 0x04};

static const SignatureAlgorithm kAlgorithms[] = {
    {"RS256", SignatureFamily::Pkcs1, BCRYPT_SHA256_ALGORITHM, 32, nullptr, kSha256WithRsa},
    {"RS384", SignatureFamily::Pkcs1, BCRYPT_SHA384_ALGORITHM, 48, nullptr, {}},
    {"RS512", SignatureFamily::Pkcs1, BCRYPT_SHA512_ALGORITHM, 64, nullptr, {}},
    {"PS256", SignatureFamily::Pss, BCRYPT_SHA256_ALGORITHM, 32, nullptr, {}},
    {"PS384", SignatureFamily::Pss, BCRYPT_SHA384_ALGORITHM, 48, nullptr, {}},
    {"PS512", SignatureFamily::Pss, BCRYPT_SHA512_ALGORITHM, 64, nullptr, {}},
    {"ES256", SignatureFamily::Curve, BCRYPT_SHA256_ALGORITHM, 32, "P-256", kEcdsaWithSha256},
    {"ES384", SignatureFamily::Curve, BCRYPT_SHA384_ALGORITHM, 48, "P-384", kEcdsaWithSha384},
    {"ES512", SignatureFamily::Curve, BCRYPT_SHA512_ALGORITHM, 64, "P-521", kEcdsaWithSha512},
    {"RSNULL", SignatureFamily::Pkcs1, BCRYPT_SHA1_ALGORITHM, 20, nullptr, {}},
};

const SignatureAlgorithm& FindSignatureAlgorithm(const std::string& name)
{
    for (const SignatureAlgorithm& algorithm : kAlgorithms) {
        if (EqualIgnoringCase(std::string_view(name), algorithm.name))
            return algorithm;
    }
    throw UsageFailure("unknown signature algorithm: '" + name + "'; choose one of " + SignatureAlgorithmNames());
}

const SignatureAlgorithm& AlgorithmFor(const std::string& curve)
{
    for (const SignatureAlgorithm& algorithm : kAlgorithms) {
        if (algorithm.curve && algorithm.curve == curve)
            return algorithm;
    }
    return FindSignatureAlgorithm("RS256");
}

const SignatureAlgorithm& AlgorithmFor(const PublicKey& key)
{
    return AlgorithmFor(key.isRsa ? std::string() : key.curve->jwkName);
}

Padding::Padding(const SignatureAlgorithm& algorithm)
{
    if (algorithm.family == SignatureFamily::Pkcs1) {
        pkcs1.pszAlgId = algorithm.hash;
        info = &pkcs1;
        flags = BCRYPT_PAD_PKCS1;
    } else if (algorithm.family == SignatureFamily::Pss) {
        pss.pszAlgId = algorithm.hash;
        pss.cbSalt = static_cast<ULONG>(algorithm.digestSize);
        info = &pss;
        flags = BCRYPT_PAD_PSS;
    }
}

std::string SignatureAlgorithmNames()
{
    std::string names;
    for (const SignatureAlgorithm& algorithm : kAlgorithms)
        AddPart(&names, algorithm.name, ", ");
    return names;
}

void CheckKeyFits(const SignatureAlgorithm& algorithm, const PublicKey& key, const std::string& keyName)
{
    const std::string wanted = algorithm.curve ? algorithm.curve : "RSA";
    const std::string found = key.isRsa ? "RSA" : key.curve->jwkName;
    if (wanted != found) {
        throw UsageFailure(std::string(algorithm.name) + " needs a key of " + wanted + ", and '" + keyName + "' is " +
                           Describe(key));
    }
}

size_t SignatureSize(const PublicKey& key)
{
    return key.isRsa ? key.modulus.size() : 2 * key.curve->width;
}

}  // namespace kelvaroctl
