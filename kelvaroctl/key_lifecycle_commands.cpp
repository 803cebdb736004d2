#include "kelvaroctl/commands.h"
#include "kelvaroctl/files.h"
#include "kelvaroctl/key_file.h"
#include "kelvaroctl/public_key.h"
#include "kelvaroctl/terminal.h"

namespace kelvaroctl {

Answer CreateKey(Tool& tool)
{
    const auto provider = tool.OpenProvider();
    Key key = Key::Create(*provider, tool.name, tool.algorithm, tool.overwrite);
    if (tool.length)
        key.SetLength(tool.length);
    key.Finalize();
    const PublicKey publicKey = ParsePublicBlob(key.PublicBlob());
    const bool hasCertificate = ReadSetting(tool.hive(), "CertificatesOrKeys").number == 0;
    Answer answer = {{{"name", tool.name}, {"scope", tool.hive().scope()}, {"algorithm", tool.algorithm}}};
    AddFacts(publicKey, &answer.object);
    answer.object["certificate"] = hasCertificate;
    answer.text = "'" + Printable(tool.name) + "' was created" +
                  (hasCertificate ? " as the key of a certificate: " : ": ") + Describe(publicKey) + ", SHA-256 " +
                  Fingerprint(publicKey) + "\n";
    return answer;
}

static std::string Question(const std::string& name, bool purges)
{
    return "Delete the key '" + Printable(name) + "' in the vault" +
           (purges ? " and purge it, so that it cannot be recovered" : "; it can be recovered there for a time") + "?";
}

Answer DeleteKey(Tool& tool)
{
    const bool purges = ReadSetting(tool.hive(), "DoDeletePurge").number == 0;
    const bool confirmed = tool.yes || Confirmed(Question(tool.name, purges));
    Answer answer = {{{"name", tool.name}, {"scope", tool.hive().scope()}, {"deleted", confirmed}}};
    if (!confirmed)
        return {answer.object, "'" + Printable(tool.name) + "' was not deleted\n", ExitCode::Negative};
    const auto provider = tool.OpenProvider();
    Key(*provider, tool.name).Delete();
    // Only the module's log says whether the vault purged it.
    answer.object["purgeRequested"] = purges;
    answer.text = "'" + Printable(tool.name) + "' was deleted" + (purges ? ", and its purge requested\n" : "\n");
    return answer;
}

// The first line of a file.
static SecretString FirstLine(const std::string& name)
{
    constexpr size_t kLargestPasswordFile = 64 * 1024;
    const Bytes content = ReadInput(name, kLargestPasswordFile);
    return SecretString(AsText(content).substr(0, AsText(content).find_first_of("\r\n")));
}

static SecretString Password(const Arguments& arguments, const KeyFile& file)
{
    if (!arguments.passwordFile.empty())
        return FirstLine(arguments.passwordFile);
    return file.encrypted ? ReadSecretLine("Password of " + arguments.input + ": ") : SecretString();
}

// The kind of file determines the scope.
static void CheckScope(const Tool& tool, const KeyFile& file)
{
    if (file.machineKey == tool.user) {
        throw UsageFailure(std::string("the provider imports a ") + file.kind + " as a " +
                           (file.machineKey ? "machine key: leave out --user" : "user key: add --user"));
    }
}

// Starting a creation signs in and fails if the name is taken; nothing is created until Finalize().
static void CheckNameIsFree(const Provider& provider, const std::string& name)
{
    try {
        Key::Create(provider, name, "RSA", false);
    } catch (const Failure& failure) {
        if (failure.status == NTE_EXISTS)
            throw StatusFailure(Operation::ImportKey, NTE_EXISTS, name);
        throw;
    }
}

Answer ImportKey(Tool& tool)
{
    const KeyFile file = ReadKeyFile(tool.input);
    const bool named = !tool.name.empty();
    if (named)
        CheckScope(tool, file);
    const SecretString password = Password(tool, file);
    const auto provider = tool.OpenProvider();
    if (named)
        CheckNameIsFree(*provider, tool.name);
    Key key = Key::Import(*provider, tool.input, file.blobType, file.content, tool.name, password);
    const DWORD bits = key.NumberProperty(NCRYPT_LENGTH_PROPERTY);
    Answer answer = {
        {{"file", tool.input}, {"kind", file.kind}, {"bits", bits}, {"materialSent", false}, {"created", named}},
        Printable(tool.input) + " contains an RSA key of " + std::to_string(bits) +
            " bits, which is valid. It was kept encrypted in this process and never sent.\n"};
    if (named) {
        key.Finalize();
        const PublicKey publicKey = ParsePublicBlob(key.PublicBlob());
        answer.object["name"] = tool.name;
        answer.object["scope"] = tool.hive().scope();
        answer.object["fingerprint"] = Fingerprint(publicKey);
        answer.text += "The vault has created a different key, '" + Printable(tool.name) + "': " + Describe(publicKey) +
                       ", SHA-256 " + Fingerprint(publicKey) + "\n";
    }
    return answer;
}

}  // namespace kelvaroctl
