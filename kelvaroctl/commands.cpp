// The table of commands, from which the command line, the help, the manual page and the completions are generated.
#include "kelvaroctl/commands.h"

#include "kelvaroctl/setting_table.h"
#include "kelvaroctl/signature_algorithms.h"

namespace kelvaroctl {

static std::string SettingsFooter()
{
    std::vector<std::vector<std::string>> rows;
    for (const Setting* setting = kSettings; setting->name; ++setting) {
        if (!IsState(*setting))
            rows.push_back({setting->name, setting->summary});
    }
    return "Settings:\n" + Columns(rows, 2) + "ClientSecret takes no value: the tool prompts for it without echo, " +
           "or reads one line from standard input.";
}

static Command ConfigCommands()
{
    const Argument name = {"NAME", &Arguments::name, "the setting's name", nullptr, kRequired, {}, 0, SettingNames()};
    return {"config",
            "the provider's settings",
            {},
            nullptr,
            {{"show", "show all settings; secrets are never shown", {}, ShowConfig},
             {"get", "print the value of one setting, or its default", {name}, GetSetting},
             {"set",
              "set one setting",
              {name,
               {"VALUE", &Arguments::value, "its value; not for ClientSecret"},
               {"--anyway", &Arguments::anyway, "set a secret even though ordinary users can read the settings"}},
              SetSetting},
             {"protect",
              "let only administrators, and accounts that you allow, read the machine's settings",
              {{"--allow", &Arguments::accounts,
                "an account or group that can read them too; can be repeated (Linux: one group)", "ACCOUNT"}},
              ProtectConfig},
             {"unset", "remove one setting, so that its default applies", {name}, UnsetSetting},
             {"import",
              "import settings from an export of the registry editor, all or none",
              {{"FILE", &Arguments::input, "the exported text, UTF-8 or UTF-16", nullptr, kRequired},
               {"--anyway", &Arguments::anyway, "import a secret even though ordinary users can read the settings"}},
              ImportConfig}},
            SettingsFooter()};
}

static const std::vector<std::string> kAnyValue;
static const std::vector<std::string> kExportFormats = {"pem", "cng", "jwk"};
static const std::vector<std::string> kKeyAlgorithms = {"RSA",       "ECDSA_P256", "ECDSA_P384", "ECDSA_P521",
                                                        "ECDH_P256", "ECDH_P384",  "ECDH_P521"};
static const std::vector<std::string> kWays = {"module", "ncrypt"};

static const Argument kKeyName = {"NAME", &Arguments::name, "the key's name", nullptr, kRequired};
static const Argument kKeyOption = {"--key", &Arguments::key, "the key's name", "NAME", kRequired};
static const Argument kYes = {"--yes", &Arguments::yes, "don't ask for confirmation"};
static const char kToStandardOutput[] = "the file to write; default: standard output";

static Command KeyCommands()
{
    return {
        "keys",
        "the keys of the vault",
        {},
        nullptr,
        {{"list",
          "list the keys; one request per key",
          {{"--details", &Arguments::details, "also type, size and fingerprint; one more request per key"},
           {"--names", &Arguments::namesOnly, "only the names; one request per 25 keys"},
           {"--prefix", &Arguments::prefix, "only keys whose names begin with this; the others aren't read", "TEXT"}},
          ListKeys,
          {},
          "Keys are opened in their current version; the provider does not report versions."},
         {"show", "properties, public key and fingerprint of a key", {kKeyName}, ShowKey},
         {"export",
          "export the public half of a key",
          {kKeyName,
           {"--format", &Arguments::format, "pem (SubjectPublicKeyInfo), cng (the CNG blob) or jwk", nullptr, kRequired,
            kExportFormats},
           {"--out", &Arguments::output, kToStandardOutput, "FILE"}},
          ExportKey},
         {"request",
          "create a certificate request (PKCS#10), signed by the vault key",
          {kKeyName,
           {"--subject", &Arguments::subject, "the subject name, like CN=web01, O=\"Acme, Inc.\", C=US"},
           {"--san", &Arguments::altNames,
            "an alternative name: dns:NAME, ip:ADDRESS, email:ADDRESS or uri:URI; several separated by commas, or "
            "repeat the option",
            "NAME", false, kAnyValue, ','},
           {"--out", &Arguments::output, kToStandardOutput, "FILE"},
           {"--der", &Arguments::der, "write DER instead of PEM"}},
          RequestCertificate},
         {"create",
          "create a key in the vault, with a certificate if CertificatesOrKeys is 0",
          {kKeyName,
           {"--alg", &Arguments::algorithm, "RSA, or ECDSA or ECDH with a curve, like ECDSA_P256", "ALG", kRequired,
            kKeyAlgorithms},
           {"--length", &Arguments::length, "bits of an RSA key, 2048 to 4096; default: 2048", "N"},
           {"--overwrite", &Arguments::overwrite, "create a new version if the key exists"}},
          CreateKey},
         {"delete",
          "delete a key in the vault, and purge it unless DoDeletePurge is 1; asks for confirmation",
          {kKeyName, kYes},
          DeleteKey},
         {"import",
          "check a private RSA key file; nothing is uploaded",
          {{"FILE", &Arguments::input, "PKCS#8 in PEM or DER, or a private RSA blob of CNG", nullptr, kRequired},
           {"--name", &Arguments::name, "also have the vault create a new key of this name"},
           {"--password-file", &Arguments::passwordFile,
            "a file whose first line is the password; default: prompt for it, or read standard input", "F"}},
          ImportKey,
          {},
          "Nothing is uploaded: the key in the file is checked, kept encrypted in this process, and discarded when the "
          "command ends. With --name the vault creates a different key of the same length."}},
        "Opening a machine key may copy new certificates from the vault to this machine, as in any program."};
}

static Command CertificateCommands()
{
    return {"certs",
            "certificates of keys, in the store and in the vault",
            {},
            nullptr,
            {{"list",
              "the certificates of the machine's (or with --user the user's) store",
              {{"--check", &Arguments::check,
                "compare each with its key in the vault, one request per certificate; exit code 1 if one doesn't "
                "match"}},
              ListCertificates},
             {"install",
              "install a key's certificate in the store, bound to the key",
              {{"FILE", &Arguments::input, "the certificate, PEM or DER; of several, the key's own is used", nullptr,
                kRequired},
               kKeyOption,
               {"--force", &Arguments::force, "even if its public key isn't the key's"}},
              InstallCertificateFile},
             {"publish",
              "copy a key's certificate from the store to the vault",
              {kKeyName, {"--again", &Arguments::again, "compare with the vault, and send it if they differ"}},
              PublishCertificate},
             {"remove",
              "remove a certificate from the store; the vault keeps it",
              {{"THUMBPRINT", &Arguments::thumbprint, "its SHA-1 hash, as in 'certs list'", nullptr, kRequired}, kYes},
              RemoveStoredCertificate},
             {"sync", "copy the vault's new certificates to the machine's store now", {}, SyncCertificates}}};
}

static std::vector<Argument> SignatureArguments(const Argument& last)
{
    return {
        kKeyOption,
        {"--alg", &Arguments::algorithm, SignatureAlgorithmNames() + " (RSNULL: SHA-1 with PKCS#1)", "ALG", kRequired},
        {"--in", &Arguments::input, "the data", "FILE", kRequired},
        {"--digest-hex", &Arguments::digestHex, "FILE contains the data's digest in hexadecimal"},
        {"--der", &Arguments::der, "curve signatures in DER, as openssl writes them, instead of r and s side by side"},
        last};
}

static std::vector<Argument> EncryptionArguments()
{
    return {kKeyOption,
            {"--padding", &Arguments::padding, "pkcs1, or oaep with SHA-1", nullptr, kRequired, {"pkcs1", "oaep"}},
            {"--in", &Arguments::input, "the file to read", "FILE", kRequired},
            {"--out", &Arguments::output, "the file to write", "FILE", kRequired}};
}

static Command DoctorCommand()
{
    return {"doctor",
            "diagnose problems, from loading the module to making a signature",
            {{"--key", &Arguments::key, "the key to try; default: the first usable one", "NAME"},
             {"--write", &Arguments::write, "also create, use and delete a key in the vault"},
             {"--strict", &Arguments::strict, "treat warnings as failures"},
             {"--timeout", &Arguments::seconds,
              "how long each check may wait; default: 1 to 60, depending on the check", "SECONDS"}},
            RunDoctor,
            {},
            "Without --write it changes only what every program that opens the provider changes. Secrets are not "
            "shown. It ends within a minute, with --write within two.",
            {{"--step", &Arguments::step, "what doctor's child process does"}}};
}

std::vector<Command> AllCommands()
{
    return {ConfigCommands(),
            {"provider",
             "information about the provider",
             {},
             nullptr,
             {{"show", "show its properties and the settings that apply", {}, ShowProvider}}},
            {"algorithms", "the algorithms that the provider supports", {}, ListAlgorithms},
            KeyCommands(),
            {"properties", "the properties of a key", {kKeyName}, ShowProperties},
            CertificateCommands(),
            {"sign", "sign a file",
             SignatureArguments(
                 {"--out", &Arguments::output, "the signature file; default: Base64 on standard output", "FILE"}),
             SignFile},
            {"verify", "verify a file's signature; exit code 1 for a bad one",
             SignatureArguments(
                 {"--signature", &Arguments::signature, "the signature: binary, DER or Base64", "FILE", kRequired}),
             VerifyFile},
            {"encrypt", "encrypt a small file with an RSA key", EncryptionArguments(), EncryptFile},
            {"decrypt", "decrypt a small file; only the owner can read the result", EncryptionArguments(), DecryptFile},
            DoctorCommand(),
            {"completion",
             "print the completions for a shell",
             {{"SHELL", &Arguments::shell, "bash or zsh", nullptr, kRequired, {"bash", "zsh"}}},
             PrintCompletion},
            {"manual", "print the manual page", {}, PrintManual},
            {"version", "print the version, and the module in use", {}, ShowVersion}};
}

std::vector<Argument> SharedOptions()
{
    return {{"--json", &Arguments::json, "print the result as a JSON object"},
            {"--module", &Arguments::modulePath,
             "the provider's module, before the command; default: the one beside this program, or the installed one",
             "PATH"},
            {"--via", &Arguments::via,
             "module: load the provider's module (default); ncrypt: use the key storage router of Windows", "WAY",
             false, kWays},
            {"--machine", &Arguments::machine, "machine keys and the machine's settings (default)"},
            {"--user", &Arguments::user, "the caller's own keys and settings"}};
}

bool IsOption(const Argument& argument)
{
    return argument.name[0] == '-';
}

bool IsFlag(const Argument& argument)
{
    return std::holds_alternative<bool Arguments::*>(argument.target);
}

static void AddNamed(const std::string& before, const std::vector<Command>& commands, std::vector<NamedCommand>* all)
{
    for (const Command& command : commands) {
        all->push_back({before + command.name, &command});
        AddNamed(before + command.name + " ", command.commands, all);
    }
}

std::vector<NamedCommand> Flatten(const std::vector<Command>& commands)
{
    std::vector<NamedCommand> all;
    AddNamed("", commands, &all);
    return all;
}

}  // namespace kelvaroctl
