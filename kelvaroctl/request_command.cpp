#include "kelvaroctl/certificate_request.h"
#include "kelvaroctl/commands.h"
#include "kelvaroctl/files.h"

namespace kelvaroctl {

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
    Answer answer;
    answer.object = {{"name", tool.name}, {"key", Describe(publicKey)}, {"pem", pem}};
    answer.text = pem;
    if (!tool.output.empty()) {
        output.Write(tool.der ? request : Bytes(pem.begin(), pem.end()));
        answer.object["file"] = tool.output;
        answer.text = "certificate request of '" + Printable(tool.name) + "' (" + Describe(publicKey) +
                      ") written to " + tool.output + "\n";
    }
    return answer;
}

}  // namespace kelvaroctl
