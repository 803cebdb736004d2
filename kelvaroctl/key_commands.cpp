#include "kelvaroctl/key_commands.h"

#include "kelvaroctl/files.h"
#include "kelvaroctl/import_command.h"
#include "kelvaroctl/key_lifecycle_commands.h"
#include "kelvaroctl/key_properties.h"
#include "kelvaroctl/public_key.h"
#include "kelvaroctl/request_command.h"
#include "kelvaroctl/terminal.h"

namespace kelvaroctl {

static const char kPemLabel[] = "PUBLIC KEY";

// What opening a listed key adds to its row.
static void AddDetails(const Provider& provider, const std::string& name, Json* object, std::vector<std::string>* row)
{
    try {
        const Key key(provider, name);
        const PublicKey publicKey = ParsePublicBlob(key.PublicBlob());
        (*object)["key"] = Describe(publicKey);
        (*object)["bits"] = BitLength(publicKey);
        (*object)["fingerprint"] = Fingerprint(publicKey);
        row->insert(row->end(), {Describe(publicKey), Fingerprint(publicKey)});
    } catch (const Failure& failure) {
        // Sign-in worked a moment ago; when it does not now, nothing else will.
        if (failure.exit() == ExitCode::SignIn)
            throw;
        (*object)["problem"] = failure.what();
        row->insert(row->end(), {"-", Printable(failure.what())});
    }
}

static Answer ListKeys(const Tool& tool, bool details)
{
    const auto provider = tool.OpenProvider();
    Answer answer;
    Json keys = Json::array();
    std::vector<std::vector<std::string>> rows;
    const auto visit = [&](const std::string& name, const std::string& algorithm) {
        keys.push_back({{"name", name}, {"algorithm", algorithm}});
        rows.push_back({Printable(name), algorithm.empty() ? "-" : Printable(algorithm)});
    };
    try {
        {
            ProgressLine progress;
            // The first key comes when the whole vault has been listed.
            progress.Show("listing the vault");
            provider->ForEachKey([&](const std::string& name, const std::string& algorithm) {
                visit(name, algorithm);
                progress.Show(std::to_string(rows.size()) + (rows.size() == 1 ? " key listed" : " keys listed"));
            });
            for (size_t index = 0; details && index < rows.size(); ++index) {
                AddDetails(*provider, keys[index]["name"].get<std::string>(), &keys[index], &rows[index]);
                progress.Show(std::to_string(index + 1) + " of " + std::to_string(rows.size()) + " keys read");
            }
        }
    } catch (Failure& failure) {
        failure.partial = {{"keys", keys}};
        failure.partialText = Columns(rows);
        throw;
    }
    answer.object["keys"] = std::move(keys);
    answer.text = rows.empty() ? "no keys\n" : Columns(rows);
    return answer;
}

// The public half, or why it has no other form than CNG's.
static std::optional<PublicKey> PublicKeyOf(const Key& key, std::string* problem)
{
    try {
        return ParsePublicBlob(key.PublicBlob());
    } catch (const Failure& failure) {
        *problem = failure.what();
        return std::nullopt;
    }
}

static Answer ShowKey(Tool& tool, const std::string& name)
{
    const auto provider = tool.OpenProvider();
    const Key key(*provider, name);
    const Json properties = KeyProperties(key);
    Answer answer;
    answer.object = {{"name", name}, {"scope", tool.hive().scope()}, {"algorithm", key.AlgorithmName()}};
    std::vector<std::vector<std::string>> rows = {{"name", Printable(name)}};
    std::string problem;
    std::string pem;
    if (const auto publicKey = PublicKeyOf(key, &problem)) {
        pem = PemText(SubjectPublicKeyInfo(*publicKey), kPemLabel);
        answer.object["key"] = Describe(*publicKey);
        answer.object["bits"] = BitLength(*publicKey);
        answer.object["fingerprint"] = Fingerprint(*publicKey);
        answer.object["publicKey"] = {{"pem", pem}, {"jwk", JsonWebKey(*publicKey, name)}};
        rows.push_back({"key", Describe(*publicKey)});
        rows.push_back({"fingerprint", "SHA-256 " + Fingerprint(*publicKey)});
    } else {
        tool.Warn(problem);
    }
    answer.object["properties"] = properties;
    answer.text = Columns(rows) + "properties\n" + PropertyColumns(properties, 2) + pem;
    return answer;
}

static Answer ShowProperties(const Tool& tool, const std::string& name)
{
    const auto provider = tool.OpenProvider();
    const Key key(*provider, name);
    Answer answer;
    answer.object = {{"name", name}, {"properties", KeyProperties(key)}};
    answer.text = PropertyColumns(answer.object["properties"], 0);
    return answer;
}

namespace {
struct ExportArguments {
    std::string name;
    std::string format;
    std::string file;
};
}  // namespace

static Bytes BytesOf(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

static Answer ExportKey(const Tool& tool, const ExportArguments& arguments)
{
    const bool binary = arguments.format == "cng";
    if (binary && arguments.file.empty() && !tool.json)
        throw UsageFailure("the cng form is binary: name a file with --out");
    OutputFile output(arguments.file, "");
    const auto provider = tool.OpenProvider();
    const Key key(*provider, arguments.name);
    const Bytes blob = key.PublicBlob();
    Answer answer;
    answer.object = {{"name", arguments.name}, {"format", arguments.format}};
    Bytes content = blob;
    if (binary) {
        answer.object["base64"] = Base64(blob);
    } else if (arguments.format == "jwk") {
        const Json jwk = JsonWebKey(ParsePublicBlob(blob), arguments.name);
        answer.object["jwk"] = jwk;
        answer.text = jwk.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
        content = BytesOf(answer.text);
    } else {
        answer.text = PemText(SubjectPublicKeyInfo(ParsePublicBlob(blob)), kPemLabel);
        answer.object["pem"] = answer.text;
        content = BytesOf(answer.text);
    }
    if (!arguments.file.empty()) {
        output.Write(content);
        answer.object["file"] = arguments.file;
        answer.text = "public key written to " + arguments.file + "\n";
    }
    return answer;
}

static void AddExportCommand(CLI::App& keys, Tool& tool)
{
    const auto arguments = std::make_shared<ExportArguments>();
    CLI::App* const command = keys.add_subcommand("export", "export the public half of a key");
    command->add_option("NAME", arguments->name, "the key's name")->required();
    command->add_option("--format", arguments->format, "pem (SubjectPublicKeyInfo), cng (the CNG blob) or jwk")
        ->required()
        ->check(CLI::IsMember({"pem", "cng", "jwk"}));
    command->add_option("--out", arguments->file, "the file to write; else standard output")->type_name("FILE");
    command->callback([&tool, arguments] { tool.action = [&tool, arguments] { return ExportKey(tool, *arguments); }; });
}

void AddKeyCommands(CLI::App& app, Tool& tool)
{
    CLI::App* const keys = app.add_subcommand("keys", "the keys of the vault");
    keys->require_subcommand(1);
    keys->footer(
        "Like any host's, the opening of a machine key may bring new certificates of the vault to this machine.");

    const auto details = std::make_shared<bool>(false);
    CLI::App* const list = keys->add_subcommand("list", "list the keys; one request to the vault for each");
    list->footer("A key is opened in its current version; the provider tells its hosts no version.");
    list->add_flag("--details", *details, "type, size and fingerprint too; one more request for each key");
    list->callback([&tool, details] { tool.action = [&tool, details] { return ListKeys(tool, *details); }; });

    const auto name = std::make_shared<std::string>();
    CLI::App* const show = keys->add_subcommand("show", "properties, public key and fingerprint of a key");
    show->add_option("NAME", *name, "the key's name")->required();
    show->callback([&tool, name] { tool.action = [&tool, name] { return ShowKey(tool, *name); }; });
    AddExportCommand(*keys, tool);
    AddRequestCommand(*keys, tool);
    AddKeyLifecycleCommands(*keys, tool);
    AddImportCommand(*keys, tool);

    CLI::App* const properties = app.add_subcommand("properties", "the properties of a key");
    properties->add_option("NAME", *name, "the key's name")->required();
    properties->callback([&tool, name] { tool.action = [&tool, name] { return ShowProperties(tool, *name); }; });
}

}  // namespace kelvaroctl
