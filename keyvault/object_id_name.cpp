#include "keyvault/json.h"
#include "keyvault/signin.h"
#include "keyvault/vault_name.h"
#include "support/base64.h"
#include "support/codepage.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/text.h"

namespace {

// The claims of a JSON web token: the text between its first two dots. NULL: there is none, or no memory.
SecretTextPtr ClaimsText(const WCHAR* token)
{
    const TextView text = View(token);
    const size_t first = text.find(TEXT('.'));
    if (first == TextView::npos)
        return nullptr;
    const size_t second = text.find(TEXT('.'), first + 1);
    if (second == TextView::npos)
        return nullptr;
    const TextView claims = text.substr(first + 1, second - first - 1);
    SecretTextPtr copy(static_cast<WCHAR*>(calloc(claims.size() + 1, sizeof(WCHAR))));
    if (copy)
        claims.copy(copy.get(), claims.size());
    return copy;
}

JsonPtr DecodeClaims(const WCHAR* text)
{
    BYTE* bytes = nullptr;
    DWORD size = 0;
    if (!text || !KVCKelvaro_FromBase64(text, &bytes, &size, 1))
        return nullptr;
    // The decoder terminates what it allocates.
    const SecretBytesPtr claims(reinterpret_cast<char*>(bytes));
    return JsonParse(claims.get());
}

// "x" and the object id without its dashes; NULL on any failure.
BldStrPtr NameFromObjectId(const char* objectId)
{
    const MallocPtr<WCHAR> wide(objectId ? BytesStrToWStr(objectId) : nullptr);
    BldStrPtr name(wide ? BldStrNewStr(TEXT("x")) : nullptr);
    if (!name || !BldStrCat(name.get(), wide.get()))
        return nullptr;
    BldStrRemove(name.get(), TEXT('-'));
    return name;
}

}  // namespace

BldStrPtr VaultNameFromIdentity(const WCHAR* accessToken, const WCHAR* presentName)
{
    LogString(TEXT("KVCAuthenticate Found OIDGUID - Replace"), presentName, LOG_STEP_LEVEL);
    const SecretTextPtr text = ClaimsText(accessToken);
    const JsonPtr claims = DecodeClaims(text.get());
    BldStrPtr name = NameFromObjectId(JsonMemberText(claims.get(), "oid"));
    // A shorter name wasn't cut, so it didn't come from a GUID.
    if (!name || name->length <= kVaultNameLimit)
        return nullptr;
    name->length = kVaultNameLimit;
    name->cStr[kVaultNameLimit] = 0;
    return name;
}
