#include "provider/property_trace.h"

#include <string.h>

#include "support/text.h"

namespace {

// Only for the trace: nothing else here needs all of these names.
constexpr const WCHAR* kNumberNames[] = {
    TEXT("Block Length"),      TEXT("Export Policy"), TEXT("Impl Type"),       TEXT("Key Type"),
    TEXT("Key Usage"),         TEXT("Length"),        TEXT("Max Name Length"), TEXT("Security Descr Support"),
    TEXT("Enabled Use Count"), TEXT("Version"),
};
constexpr const WCHAR* kTextNames[] = {
    TEXT("Algorithm Group"), TEXT("Algorithm Name"),  TEXT("SmartCardAssociatedECDHKey"), TEXT("Name"),
    TEXT("SmartCardPin"),    TEXT("SmartCardReader"), TEXT("SmartCardSecurePin"),         TEXT("Unique Name"),
    TEXT("Use Context"),
};

template <size_t count>
bool Listed(const WCHAR* const (&names)[count], const WCHAR* name)
{
    for (const WCHAR* listed : names) {
        if (TextEqualNoCase(View(name), View(listed)))
            return true;
    }
    return false;
}

LONG NumberOf(const BYTE* value, DWORD cbValue)
{
    LONG number = -1;
    if (value && cbValue >= sizeof(number))
        memcpy(&number, value, sizeof(number));
    return number;
}

}  // namespace

void WritePropertyTrace(const WCHAR* function, const WCHAR* pszProperty, const BYTE* value, DWORD cbValue)
{
    if (Listed(kNumberNames, pszProperty))
        LogNumber(function, pszProperty, NumberOf(value, cbValue), LOG_DETAIL_LEVEL);
    else if (Listed(kTextNames, pszProperty))
        LogHostText(function, pszProperty, value, cbValue, LOG_DETAIL_LEVEL);
    else
        LogData(function, pszProperty);
}
