// A vault takes letters, digits and hyphens. Any other name of a key is stored as "-", three base-50 digits for each
// UTF-16 unit, lowest first, and "z" up to 43 characters.
#include <algorithm>

#include "kelvaroctl/doctor/doctor.h"

namespace kelvaroctl {

static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwx";
constexpr size_t kShortest = 43;  // of the stored form

static bool IsPlain(const std::string& name)
{
    return name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-") ==
               std::string::npos &&
           (name.empty() || name[0] != '-');
}

std::string VaultNameOf(const std::string& clearName)
{
    if (IsPlain(clearName))
        return clearName;
    std::string name = "-";
    for (const WCHAR unit : ToWide(clearName)) {
        for (const unsigned digit : {unit % 50u, unit / 50u % 50u, unit / 2500u})
            name += kDigits[digit];
    }
    return name.size() < kShortest ? name.append(kShortest - name.size(), 'z') : name;
}

std::string ClearNameOf(const std::string& vaultName)
{
    if (vaultName.size() < kShortest || vaultName[0] != '-')
        return vaultName;
    WideText clear;
    for (size_t at = 1; at + 2 < vaultName.size() && vaultName[at] != 'z'; at += 3) {
        unsigned unit = 0;
        for (size_t place = 3; place-- > 0;) {
            const char* const digit = std::find(kDigits, kDigits + 50, vaultName[at + place]);
            unit = unit * 50 + static_cast<unsigned>(digit - kDigits) % 50;
        }
        clear += static_cast<WCHAR>(unit);
    }
    return ToNarrow(clear);
}

}  // namespace kelvaroctl
