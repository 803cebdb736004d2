#include "keyvault/vault_name.h"

#include "support/text.h"

namespace {

constexpr size_t kTemplateChars = 512;
constexpr size_t kComputerNameChars = 256;

void WriteComputerName(TextWriter& out)
{
    WCHAR name[kComputerNameChars] = {};
    DWORD chars = kComputerNameChars;
    if (GetComputerNameExW(ComputerNameDnsFullyQualified, name, &chars))
        out.Text(TextView(name));
}

void WriteEscape(TextWriter& out, WCHAR escape)
{
    if (escape == TEXT('D'))
        WriteComputerName(out);
    else if (escape == TEXT('G'))
        out.Text(kIdentityNameMarker);
}

void Expand(TextView nameTemplate, TextWriter& out)
{
    for (size_t i = 0; i < nameTemplate.size(); ++i) {
        if (nameTemplate[i] != TEXT('%'))
            out.Text(nameTemplate.substr(i, 1));
        else if (++i < nameTemplate.size())
            WriteEscape(out, nameTemplate[i]);
    }
}

// Not tolower, which depends on the host's locale.
WCHAR LowerAscii(WCHAR ch)
{
    return ch >= TEXT('A') && ch <= TEXT('Z') ? static_cast<WCHAR>(ch - TEXT('A') + TEXT('a')) : ch;
}

}  // namespace

void VaultNameFromTemplate(const WCHAR* nameTemplate, WCHAR (&name)[kVaultNameLimit + 1])
{
    WCHAR bounded[kTemplateChars] = {};
    TextCopyCut(bounded, kTemplateChars, View(nameTemplate).empty() ? TextView(TEXT("%D")) : View(nameTemplate));

    WCHAR expanded[kTemplateChars] = {};
    TextWriter out(expanded, kTemplateChars);
    Expand(TextView(bounded), out);

    size_t length = 0;
    for (const WCHAR ch : TextView(expanded, out.length())) {
        if (length == kVaultNameLimit)
            break;
        if (ch != TEXT('.'))
            name[length++] = LowerAscii(ch);
    }
    name[length] = 0;
}
