#include "kelvaroctl/certificate_request.h"
#include "kelvaroctl/commands.h"
#include "kelvaroctl/files.h"

namespace kelvaroctl {

namespace {
struct RequestArguments {
    std::string name;
    std::string subject;
    std::vector<std::string> names;
    std::string file;
    bool der = false;
};
}  // namespace

static RequestContent ContentOf(const RequestArguments& arguments)
{
    RequestContent content;
    content.subject = EncodeName(arguments.subject);
    for (const std::string& name : arguments.names)
        content.names.push_back(ParseSubjectAltName(name));
    if (arguments.subject.empty() && content.names.empty())
        throw UsageFailure("a request needs a --subject or a --san");
    return content;
}

static Bytes SignDigest(const Key& key, bool isRsa, const WCHAR* hash, const Bytes& digest)
{
    BCRYPT_PKCS1_PADDING_INFO padding = {hash};
    return key.Sign(isRsa ? &padding : nullptr, digest, isRsa ? BCRYPT_PAD_PKCS1 : 0);
}

static Answer Request(const Tool& tool, const RequestArguments& arguments)
{
    const RequestContent content = ContentOf(arguments);
    if (arguments.der && arguments.file.empty())
        throw UsageFailure("DER is binary: name a file with --out");
    OutputFile output(arguments.file, "");
    const auto provider = tool.OpenProvider();
    const Key key(*provider, arguments.name);
    const PublicKey publicKey = ParsePublicBlob(key.PublicBlob());
    const Bytes request = MakeRequest(content, publicKey, [&](const WCHAR* hash, const Bytes& digest) {
        return SignDigest(key, publicKey.isRsa, hash, digest);
    });
    const std::string pem = PemText(request, "CERTIFICATE REQUEST");
    Answer answer;
    answer.object = {{"name", arguments.name}, {"key", Describe(publicKey)}, {"pem", pem}};
    answer.text = pem;
    if (!arguments.file.empty()) {
        output.Write(arguments.der ? request : Bytes(pem.begin(), pem.end()));
        answer.object["file"] = arguments.file;
        answer.text = "certificate request of '" + Printable(arguments.name) + "' (" + Describe(publicKey) +
                      ") written to " + arguments.file + "\n";
    }
    return answer;
}

Command RequestCommand()
{
    const auto to = std::make_shared<RequestArguments>();
    return {"request",
            "create a certificate request (PKCS#10), signed by the vault key",
            {{"NAME", &to->name, "the key's name", nullptr, kRequired},
             {"--subject", &to->subject, "the subject name, like CN=web01, O=\"Acme, Inc.\", C=US"},
             {"--san",
              &to->names,
              "an alternative name: dns:NAME, ip:ADDRESS, email:ADDRESS or uri:URI; several separated by commas, or "
              "repeat the option",
              "NAME",
              false,
              {},
              ','},
             {"--out", &to->file, "the file to write; default: standard output", "FILE"},
             {"--der", &to->der, "write DER instead of PEM"}},
            [to](Tool& tool) { return Request(tool, *to); }};
}

}  // namespace kelvaroctl
