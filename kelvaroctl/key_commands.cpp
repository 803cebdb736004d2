#include "kelvaroctl/commands.h"
#include "kelvaroctl/files.h"
#include "kelvaroctl/key_properties.h"
#include "kelvaroctl/log_lines.h"
#include "kelvaroctl/public_key.h"
#include "kelvaroctl/terminal.h"

namespace kelvaroctl {

static const char kPemLabel[] = "PUBLIC KEY";

namespace {
struct ListArguments {
    bool details = false;
    bool names = false;
    std::string prefix;
};

using Row = std::vector<std::string>;

// The list as far as it has been read.
struct KeyList {
    Json keys = Json::array();
    std::vector<Row> rows;

    // algorithm: NULL if it wasn't read.
    void Add(const std::string& name, const std::string* algorithm)
    {
        keys.push_back({{"name", name}});
        rows.push_back({Printable(name)});
        if (!algorithm)
            return;
        keys.back()["algorithm"] = *algorithm;
        rows.back().push_back(algorithm->empty() ? "-" : Printable(*algorithm));
    }
};
}  // namespace

// Opens the key of the last row for its details.
static void AddDetails(const Provider& provider, Json* object, Row* row)
{
    try {
        const Key key(provider, (*object)["name"].get<std::string>());
        const PublicKey publicKey = ParsePublicBlob(key.PublicBlob());
        AddFacts(publicKey, object);
        row->insert(row->end(), {Describe(publicKey), Fingerprint(publicKey)});
    } catch (const Failure& failure) {
        // Without sign-in, no other key will open either.
        if (failure.exit() == ExitCode::SignIn)
            throw;
        (*object)["problem"] = failure.what();
        row->insert(row->end(), {"-", Printable(failure.what())});
    }
}

// The keys whose names begin with the prefix; only they are read, and none for their names alone.
static void ListSome(const Provider& provider, const ListArguments& arguments, ProgressLine* progress, KeyList* list)
{
    for (const std::string& name : provider.KeyNames()) {
        if (name.compare(0, arguments.prefix.size(), arguments.prefix) != 0)
            continue;
        const std::string algorithm = arguments.names ? "" : Key(provider, name).AlgorithmName();
        list->Add(name, arguments.names ? nullptr : &algorithm);
        progress->Show(std::to_string(list->rows.size()) + " keys listed");
    }
}

static void ListAll(const Provider& provider, ProgressLine* progress, KeyList* list)
{
    provider.ForEachKey([&](const std::string& name, const std::string& algorithm) {
        list->Add(name, &algorithm);
        const size_t count = list->rows.size();
        progress->Show(std::to_string(count) + (count == 1 ? " key listed" : " keys listed"));
    });
}

// The module ends a list at a page that isn't JSON; only its log says so.
static void CheckComplete(const Tool& tool)
{
    for (const LogLine& line : tool.LogLines()) {
        if (line.text.find("KVCGetKeys answer is not JSON") == 0)
            throw ForeignAnswerFailure("list all keys");
    }
}

static void FillList(const Tool& tool, const ListArguments& arguments, KeyList* list)
{
    const auto provider = tool.OpenProvider();
    ProgressLine progress;
    // The first key comes after the whole vault has been listed.
    progress.Show("listing the vault");
    if (arguments.names || !arguments.prefix.empty())
        ListSome(*provider, arguments, &progress, list);
    else
        ListAll(*provider, &progress, list);
    CheckComplete(tool);
    for (size_t index = 0; arguments.details && index < list->rows.size(); ++index) {
        AddDetails(*provider, &list->keys[index], &list->rows[index]);
        progress.Show(std::to_string(index + 1) + " of " + std::to_string(list->rows.size()) + " keys read");
    }
}

static Answer ListKeys(const Tool& tool, const ListArguments& arguments)
{
    if (arguments.names && arguments.details)
        throw UsageFailure("--details reads every key, and --names none: choose one");
    KeyList list;
    try {
        FillList(tool, arguments, &list);
    } catch (Failure& failure) {
        failure.partial = std::make_shared<Json>(Json{{"keys", list.keys}});
        failure.partialText = Columns(list.rows);
        throw;
    }
    Answer answer;
    answer.object["keys"] = std::move(list.keys);
    answer.text = list.rows.empty() ? "no keys\n" : Columns(list.rows);
    return answer;
}

// The public key, or why it is only available in CNG's format.
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
        AddFacts(*publicKey, &answer.object);
        answer.object["publicKey"] = {{"pem", pem}, {"jwk", JsonWebKey(*publicKey, name)}};
        rows.push_back({"key", Describe(*publicKey)});
        rows.push_back({"fingerprint", "SHA-256 " + Fingerprint(*publicKey)});
    } else {
        tool.Warn(problem);
    }
    const std::vector<std::string> operations = KeyOperations(key);
    answer.object["operations"] = operations;
    answer.object["enabled"] = nullptr;
    answer.object["expires"] = nullptr;
    rows.push_back({"operations", Joined(operations)});
    rows.push_back({"enabled, expiry", "not reported by the provider; see kelvaroctl doctor --key"});
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
        throw UsageFailure("the cng format is binary: name a file with --out");
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

static Command ExportCommand()
{
    const auto to = std::make_shared<ExportArguments>();
    return {"export",
            "export the public half of a key",
            {{"NAME", &to->name, "the key's name", nullptr, kRequired},
             {"--format",
              &to->format,
              "pem (SubjectPublicKeyInfo), cng (the CNG blob) or jwk",
              nullptr,
              kRequired,
              {"pem", "cng", "jwk"}},
             {"--out", &to->file, "the file to write; default: standard output", "FILE"}},
            [to](Tool& tool) { return ExportKey(tool, *to); }};
}

// A command whose one argument is a key's name.
template <typename Run>
static Command CommandOnKey(const char* command, const char* help, Run run)
{
    const auto name = std::make_shared<std::string>();
    return {command, help, {{"NAME", name.get(), "the key's name", nullptr, kRequired}}, [name, run](Tool& tool) {
                return run(tool, *name);
            }};
}

Command KeysCommand()
{
    const auto to = std::make_shared<ListArguments>();
    const Command list = {
        "list",
        "list the keys; one request per key",
        {{"--details", &to->details, "also type, size and fingerprint; one more request per key"},
         {"--names", &to->names, "only the names, which takes one request for 25 keys"},
         {"--prefix", &to->prefix, "only keys whose names begin with this; the others aren't read", "TEXT"}},
        [to](Tool& tool) { return ListKeys(tool, *to); },
        {},
        "Keys are opened in their current version; the provider does not report versions."};
    const Command show = CommandOnKey("show", "properties, public key and fingerprint of a key", ShowKey);
    return {"keys",
            "the keys of the vault",
            {},
            {},
            {list, show, ExportCommand(), RequestCommand(), CreateCommand(), DeleteCommand(), ImportCommand()},
            "Opening a machine key may copy new certificates from the vault to this machine, as in any program."};
}

Command PropertiesCommand()
{
    return CommandOnKey("properties", "the properties of a key", ShowProperties);
}

}  // namespace kelvaroctl
