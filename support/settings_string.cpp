#include "support/settings_string.h"

#include "support/guards.h"
#include "support/log.h"
#include "support/settings.h"
#include "support/text.h"

namespace {

HKEY Hive(int isMachine)
{
    return isMachine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
}

}  // namespace

BldStr* BldStrGetWStringValue(int isMachine, const WCHAR* valueName)
{
    const HKEY hive = Hive(isMachine);
    // Room for a terminator that the stored value may lack.
    const DWORD capacity = SettingsValueSize(hive, valueName) / 2 * 2 + 4;
    MallocPtr<BldStr> str(static_cast<BldStr*>(calloc(1, sizeof(BldStr))));
    MallocPtr<WCHAR> text(static_cast<WCHAR*>(calloc(1, capacity)));
    if (!str || !text) {
        LogString(TEXT("BldStrGetWStringValue Allocate String Failed"), nullptr, LOG_ERROR_LEVEL);
        return nullptr;
    }
    // A value that has grown since it was measured counts as empty.
    SettingsReadText(hive, valueName, text.get(), capacity);
    str->capacity = capacity;
    str->length = static_cast<DWORD>(View(text.get()).size());
    str->cStr = text.release();
    return str.release();
}

int BldStrSetWStringValue(int isMachine, const WCHAR* valueName, const WCHAR* text)
{
    return SettingsWriteText(Hive(isMachine), valueName, text) ? 1 : 0;
}
