#include "kelvaroctl/commands.h"
#include "kelvaroctl/files.h"
#include "kelvaroctl/public_key.h"

namespace kelvaroctl {

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
