#include "kelvaroctl/certificate_request.h"
#include "kelvaroctl/commands.h"
#include "kelvaroctl/files.h"
#include "kelvaroctl/key_properties.h"
#include "kelvaroctl/module_log.h"
#include "kelvaroctl/public_key.h"
#include "kelvaroctl/terminal.h"

namespace kelvaroctl {

static const char kPemLabel[] = "PUBLIC KEY";

namespace {
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
        // If sign-in fails, no other key will open either.
        if (failure.exit() == ExitCode::SignIn)
            throw;
        (*object)["problem"] = failure.what();
        row->insert(row->end(), {"-", Printable(failure.what())});
    }
}

// The keys whose names begin with the prefix. Reads only those, or none if only the names are wanted.
static void ListSome(const Provider& provider, const Arguments& arguments, ProgressLine* progress, KeyList* list)
{
    for (const std::string& name : provider.KeyNames()) {
        if (name.compare(0, arguments.prefix.size(), arguments.prefix) != 0)
            continue;
        const std::string algorithm = arguments.namesOnly ? "" : Key(provider, name).AlgorithmName();
        list->Add(name, arguments.namesOnly ? nullptr : &algorithm);
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

static void FillList(const Tool& tool, KeyList* list)
{
    const auto provider = tool.OpenProvider();
    ProgressLine progress;
    // The first key comes after the whole vault has been listed.
    progress.Show("listing the vault");
    if (tool.namesOnly || !tool.prefix.empty())
        ListSome(*provider, tool, &progress, list);
    else
        ListAll(*provider, &progress, list);
    CheckComplete(tool);
    for (size_t index = 0; tool.details && index < list->rows.size(); ++index) {
        AddDetails(*provider, &list->keys[index], &list->rows[index]);
        progress.Show(std::to_string(index + 1) + " of " + std::to_string(list->rows.size()) + " keys read");
    }
}

Answer ListKeys(Tool& tool)
{
    if (tool.namesOnly && tool.details)
        throw UsageFailure("--details reads every key, and --names none: choose one");
    KeyList list;
    try {
        FillList(tool, &list);
    } catch (Failure& failure) {
        failure.partial = std::make_shared<Json>(Json{{"keys", list.keys}});
        failure.partialText = Columns(list.rows);
        throw;
    }
    return {{{"keys", list.keys}}, list.rows.empty() ? "no keys\n" : Columns(list.rows)};
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

Answer ShowKey(Tool& tool)
{
    const auto provider = tool.OpenProvider();
    const Key key(*provider, tool.name);
    const Json properties = KeyProperties(key);
    Answer answer = {{{"name", tool.name}, {"scope", tool.hive().scope()}, {"algorithm", key.AlgorithmName()}}};
    std::vector<std::vector<std::string>> rows = {{"name", Printable(tool.name)}};
    std::string problem;
    std::string pem;
    if (const auto publicKey = PublicKeyOf(key, &problem)) {
        pem = PemText(SubjectPublicKeyInfo(*publicKey), kPemLabel);
        AddFacts(*publicKey, &answer.object);
        answer.object["publicKey"] = {{"pem", pem}, {"jwk", JsonWebKey(*publicKey, tool.name)}};
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

Answer ShowProperties(Tool& tool)
{
    const auto provider = tool.OpenProvider();
    const Key key(*provider, tool.name);
    const Json properties = KeyProperties(key);
    return {{{"name", tool.name}, {"properties", properties}}, PropertyColumns(properties, 0)};
}

static Bytes BytesOf(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

Answer ExportKey(Tool& tool)
{
    const bool binary = tool.format == "cng";
    if (binary && tool.output.empty() && !tool.json)
        throw UsageFailure("the cng format is binary: name a file with --out");
    OutputFile output(tool.output, "");
    const auto provider = tool.OpenProvider();
    const Key key(*provider, tool.name);
    const Bytes blob = key.PublicBlob();
    Answer answer = {{{"name", tool.name}, {"format", tool.format}}};
    Bytes content = blob;
    if (binary) {
        answer.object["base64"] = Base64(blob);
    } else if (tool.format == "jwk") {
        const Json jwk = JsonWebKey(ParsePublicBlob(blob), tool.name);
        answer.object["jwk"] = jwk;
        answer.text = jwk.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
        content = BytesOf(answer.text);
    } else {
        answer.text = PemText(SubjectPublicKeyInfo(ParsePublicBlob(blob)), kPemLabel);
        answer.object["pem"] = answer.text;
        content = BytesOf(answer.text);
    }
    PutInFile(&output, "public key", content, &answer);
    return answer;
}

static RequestContent ContentOf(const Arguments& arguments)
{
    RequestContent content;
    content.subject = EncodeName(arguments.subject);
    for (const std::string& name : arguments.altNames)
        content.names.push_back(ParseSubjectAltName(name));
    if (arguments.subject.empty() && content.names.empty())
        throw UsageFailure("a request needs a --subject or a --san");
    return content;
}

Answer RequestCertificate(Tool& tool)
{
    const RequestContent content = ContentOf(tool);
    if (tool.der && tool.output.empty())
        throw UsageFailure("DER is binary: name a file with --out");
    OutputFile output(tool.output, "");
    const auto provider = tool.OpenProvider();
    const Key key(*provider, tool.name);
    const PublicKey publicKey = ParsePublicBlob(key.PublicBlob());
    const Bytes request = MakeRequest(content, publicKey, [&](const auto& algorithm, const Bytes& digest) {
        return key.Sign(Padding(algorithm), digest);
    });
    const std::string pem = PemText(request, "CERTIFICATE REQUEST");
    Answer answer = {{{"name", tool.name}, {"key", Describe(publicKey)}, {"pem", pem}}, pem};
    PutInFile(&output, "certificate request of '" + Printable(tool.name) + "' (" + Describe(publicKey) + ")",
              tool.der ? request : BytesOf(pem), &answer);
    return answer;
}

}  // namespace kelvaroctl
