#include "kelvaroctl/commands.h"
#include "kelvaroctl/files.h"
#include "kelvaroctl/input.h"
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

struct EncryptArguments {
    std::string key;
    std::string padding;
    std::string input;
    std::string output;
};
}  // namespace

static const PaddingRow& PaddingOf(const std::string& name)
{
    for (const PaddingRow& row : kPaddings) {
        if (name == row.name)
            return row;
    }
    throw UsageFailure("unknown padding: '" + name + "'");
}

// Bytes of the modulus. Throws a usage failure if the key is not RSA.
static size_t ModulusSize(const Key& key)
{
    const PublicKey publicKey = ParsePublicBlob(key.PublicBlob());
    if (!publicKey.isRsa)
        throw UsageFailure("'" + key.name() + "' is " + Describe(publicKey) + "; only RSA keys encrypt and decrypt");
    return publicKey.modulus.size();
}

static Answer Written(const EncryptArguments& arguments, OutputFile* file, const Bytes& output)
{
    file->Write(output);
    Answer answer;
    answer.object = {
        {"key", arguments.key}, {"padding", arguments.padding}, {"file", arguments.output}, {"bytes", output.size()}};
    answer.text = std::to_string(output.size()) + " bytes written to " + arguments.output + "\n";
    return answer;
}

static Answer Encrypt(const Tool& tool, const EncryptArguments& arguments)
{
    const PaddingRow& padding = PaddingOf(arguments.padding);
    const Bytes input = ReadInput(arguments.input, kLargestInput);
    OutputFile output(arguments.output, arguments.input);
    const auto provider = tool.OpenProvider();
    const Key key(*provider, arguments.key);
    const size_t modulus = ModulusSize(key);
    if (input.empty() || input.size() + padding.overhead > modulus) {
        throw UsageFailure(arguments.input + " has " + std::to_string(input.size()) +
                           " bytes; this key encrypts 1 to " + std::to_string(modulus - padding.overhead) + " with " +
                           padding.name);
    }
    return Written(arguments, &output, key.Encrypt(input, modulus, padding.flag));
}

static Answer Decrypt(const Tool& tool, const EncryptArguments& arguments)
{
    const PaddingRow& padding = PaddingOf(arguments.padding);
    const Bytes input = ReadInput(arguments.input, kLargestInput);
    OutputFile output(arguments.output, arguments.input, Readers::OwnerOnly);
    const auto provider = tool.OpenProvider();
    const Key key(*provider, arguments.key);
    const size_t modulus = ModulusSize(key);
    if (input.size() != modulus) {
        throw UsageFailure(arguments.input + " has " + std::to_string(input.size()) +
                           " bytes; a ciphertext of this key has " + std::to_string(modulus));
    }
    return Written(arguments, &output, key.Decrypt(input, modulus, padding.flag));
}

static std::vector<Argument> Arguments(EncryptArguments* to)
{
    return {{"--key", &to->key, "the key's name", "NAME", kRequired},
            {"--padding", &to->padding, "pkcs1, or oaep with SHA-1", nullptr, kRequired, {"pkcs1", "oaep"}},
            {"--in", &to->input, "the file to read", "FILE", kRequired},
            {"--out", &to->output, "the file to write", "FILE", kRequired}};
}

Command EncryptCommand()
{
    const auto to = std::make_shared<EncryptArguments>();
    return {"encrypt", "encrypt a small file with an RSA key", Arguments(to.get()),
            [to](Tool& tool) { return Encrypt(tool, *to); }};
}

Command DecryptCommand()
{
    const auto to = std::make_shared<EncryptArguments>();
    return {"decrypt", "decrypt a small file; only the owner can read the result", Arguments(to.get()),
            [to](Tool& tool) { return Decrypt(tool, *to); }};
}

}  // namespace kelvaroctl
