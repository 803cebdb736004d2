// Signing, verifying, encrypting and decrypting files.
#include "kelvaroctl/commands.h"
#include "kelvaroctl/der.h"
#include "kelvaroctl/files.h"
#include "kelvaroctl/hash.h"
#include "kelvaroctl/public_key.h"
#include "kelvaroctl/signature_algorithms.h"

namespace kelvaroctl {

constexpr size_t kLargestDigestFile = 4096;
constexpr size_t kLargestSignature = 64 * 1024;

static Bytes InputDigest(const Arguments& arguments, const SignatureAlgorithm& algorithm)
{
    if (!arguments.digestHex)
        return FileDigest(algorithm.hash, algorithm.digestSize, arguments.input);
    const Bytes content = ReadInput(arguments.input, kLargestDigestFile);
    Bytes digest;
    if (!ParseHex(AsText(content), &digest))
        throw UsageFailure(arguments.input + " does not contain a hexadecimal digest");
    if (digest.size() != algorithm.digestSize) {
        throw UsageFailure(arguments.input + " has a digest of " + std::to_string(digest.size()) + " bytes; " +
                           algorithm.name + " takes " + std::to_string(algorithm.digestSize));
    }
    return digest;
}

static const SignatureAlgorithm& AlgorithmOf(const Arguments& arguments)
{
    const SignatureAlgorithm& algorithm = FindSignatureAlgorithm(arguments.algorithm);
    if (arguments.der && algorithm.family != SignatureFamily::Curve)
        throw UsageFailure(std::string("--der is for ES256, ES384 and ES512; ") + algorithm.name +
                           " signatures have only one form");
    return algorithm;
}

Answer SignFile(Tool& tool)
{
    const SignatureAlgorithm& algorithm = AlgorithmOf(tool);
    const Bytes digest = InputDigest(tool, algorithm);
    OutputFile output(tool.output, tool.input);
    const auto provider = tool.OpenProvider();
    const Key key(*provider, tool.key);
    CheckKeyFits(algorithm, ParsePublicBlob(key.PublicBlob()), tool.key);
    Bytes signature = key.Sign(Padding(algorithm), digest);
    if (tool.der)
        signature = DerFromRawSignature(signature);
    Answer answer = {{{"key", tool.key},
                      {"algorithm", algorithm.name},
                      {"digest", HexText(digest)},
                      {"form", tool.der ? "der" : "raw"},
                      {"signature", Base64(signature)}},
                     Base64(signature) + "\n"};
    PutInFile(&output, "signature of " + std::to_string(signature.size()) + " bytes (" + algorithm.name + ")",
              signature, &answer);
    return answer;
}

// Converts a plain or DER signature to the vault's form; empty if it is neither.
static Bytes PlainForm(const Arguments& arguments, const PublicKey& key, const Bytes& signature)
{
    if (!arguments.der && signature.size() == SignatureSize(key))
        return signature;
    Bytes plain;
    return !key.isRsa && RawFromDerSignature(signature, key.curve->width, &plain) ? plain : Bytes();
}

// Converts a signature to the vault's form; it may also be Base64, which `sign` prints. Returns why it cannot be a
// signature of this key, or an empty text.
static std::string BringIntoForm(const Arguments& arguments, const PublicKey& key, Bytes* signature)
{
    Bytes plain = PlainForm(arguments, key, *signature);
    Bytes decoded;
    if (plain.empty() && ParseBase64(AsText(*signature), &decoded))
        plain = PlainForm(arguments, key, decoded);
    if (plain.empty() && arguments.der)
        return "it is not a DER signature";
    if (plain.empty()) {
        return "it has " + std::to_string(signature->size()) + " bytes; this key's have " +
               std::to_string(SignatureSize(key)) + "; it is neither DER nor Base64";
    }
    *signature = std::move(plain);
    return "";
}

Answer VerifyFile(Tool& tool)
{
    const SignatureAlgorithm& algorithm = AlgorithmOf(tool);
    const Bytes digest = InputDigest(tool, algorithm);
    Bytes signature = ReadInput(tool.signature, kLargestSignature);
    const auto provider = tool.OpenProvider();
    const Key key(*provider, tool.key);
    const PublicKey publicKey = ParsePublicBlob(key.PublicBlob());
    CheckKeyFits(algorithm, publicKey, tool.key);
    std::string reason = BringIntoForm(tool, publicKey, &signature);
    if (reason.empty() && !key.Verify(Padding(algorithm), digest, signature))
        reason = "it does not match this key and this data";
    const bool good = reason.empty();
    Json object = {{"key", tool.key}, {"algorithm", algorithm.name}, {"digest", HexText(digest)}, {"valid", good}};
    if (good)
        return {object, "good signature\n"};
    object["reason"] = reason;
    return {object, "bad signature: " + reason + "\n", ExitCode::Negative};
}

constexpr size_t kLargestInput = 64 * 1024;

namespace {
struct PaddingRow {
    const char* name;
    DWORD flag;
    size_t overhead;  // bytes of the modulus that the padding takes
};

// The provider supports OAEP with SHA-1 only.
constexpr PaddingRow kPaddings[] = {
    {"pkcs1", NCRYPT_PAD_PKCS1_FLAG, 11},
    {"oaep", NCRYPT_PAD_OAEP_FLAG, 42},
};
}  // namespace

// Bytes of the modulus. Throws a usage failure if the key is not RSA.
static size_t ModulusSize(const Key& key)
{
    const PublicKey publicKey = ParsePublicBlob(key.PublicBlob());
    if (!publicKey.isRsa)
        throw UsageFailure("'" + key.name() + "' is " + Describe(publicKey) + "; only RSA keys encrypt and decrypt");
    return publicKey.modulus.size();
}

static Answer Crypt(const Tool& tool, Operation operation)
{
    const bool encrypts = operation == Operation::Encrypt;
    const PaddingRow& padding = kPaddings[tool.padding == kPaddings[0].name ? 0 : 1];
    const Bytes input = ReadInput(tool.input, kLargestInput);
    OutputFile file(tool.output, tool.input, encrypts ? Readers::Everyone : Readers::OwnerOnly);
    const auto provider = tool.OpenProvider();
    const Key key(*provider, tool.key);
    const size_t modulus = ModulusSize(key);
    const std::string has = tool.input + " has " + std::to_string(input.size()) + " bytes; ";
    if (encrypts && (input.empty() || input.size() + padding.overhead > modulus)) {
        throw UsageFailure(has + "this key encrypts 1 to " + std::to_string(modulus - padding.overhead) + " with " +
                           padding.name);
    }
    if (!encrypts && input.size() != modulus)
        throw UsageFailure(has + "a ciphertext of this key has " + std::to_string(modulus));
    const Bytes output = key.Crypt(operation, input, modulus, padding.flag);
    file.Write(output);
    return {{{"key", tool.key}, {"padding", tool.padding}, {"file", tool.output}, {"bytes", output.size()}},
            std::to_string(output.size()) + " bytes written to " + tool.output + "\n"};
}

Answer EncryptFile(Tool& tool)
{
    return Crypt(tool, Operation::Encrypt);
}

Answer DecryptFile(Tool& tool)
{
    return Crypt(tool, Operation::Decrypt);
}

}  // namespace kelvaroctl
