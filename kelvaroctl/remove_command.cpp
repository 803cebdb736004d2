#include <algorithm>

#include "kelvaroctl/certificate_report.h"
#include "kelvaroctl/commands.h"
#include "kelvaroctl/terminal.h"

namespace kelvaroctl {

// In the store's form; people paste it with spaces or colons.
static std::string Thumbprint(const std::string& text)
{
    constexpr size_t kSha1 = 20;
    std::string digits = text;
    digits.erase(std::remove(digits.begin(), digits.end(), ':'), digits.end());
    Bytes bytes;
    if (!ParseHex(digits, &bytes) || bytes.size() != kSha1)
        throw UsageFailure("'" + text +
                           "' is not a thumbprint: 40 hexadecimal digits, as 'kelvaroctl certs list' has them");
    return HexText(bytes, kUpperHex);
}

Answer RemoveStoredCertificate(Tool& tool)
{
    const SettingsHive hive = tool.hive();
    const std::string thumbprint = Thumbprint(tool.thumbprint);
    Answer answer;
    answer.object = {{"scope", hive.scope()}, {"thumbprint", thumbprint}, {"removed", false}};
    if (!tool.yes && !Confirmed("Remove the certificate from the " + hive.scope() + " store?")) {
        answer.text = "not removed\n";
        answer.exit = ExitCode::Negative;
        return answer;
    }
    const std::string record = ReadRecord(hive);
    const auto removed = RemoveCertificate(hive.isMachine(), thumbprint);
    if (!removed)
        throw Failure(ExitCode::NotFound, "no_certificate",
                      "the " + hive.scope() + " store has no certificate " + thumbprint);
    answer.object["removed"] = true;
    answer.text = "removed from the " + hive.scope() + " store\n";
    AddCertificate(*removed, record, &answer);
    if (Knows(record, thumbprint))
        answer.text += "the vault keeps it; kelvaroctl certs sync may bring it back, the provider's own sync doesn't\n";
    return answer;
}

}  // namespace kelvaroctl
