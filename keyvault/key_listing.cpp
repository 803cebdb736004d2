// Listing all keys of a vault, page by page.
#include <stdlib.h>
#include <string.h>

#include "keyvault/key_lookup.h"
#include "keyvault/list_page.h"
#include "keyvault/rest_call.h"
#include "keyvault/text_list.h"
#include "support/codepage.h"
#include "support/fail.h"
#include "support/guards.h"
#include "support/text.h"

namespace {

constexpr ListKind kKeys = {
    0,
    "/keys?",
    TEXT("KVCGetKeys REST Call Error"),
    TEXT("KVCGetKeys ActionThrottled"),
    TEXT("KVCGetKeys rawURL nextlinkstr Found"),
    TEXT("KVCGetKeys Endless List"),
};

constexpr WCHAR kNoMemory[] = TEXT("KVCGetKeys Out of memory");

// Adds the key that an item names, if any. False: no memory.
bool TakeItem(json_object* item, TextList* list)
{
    const char* kid = JsonMemberText(item, "kid");
    const char* slash = kid ? strrchr(kid, '/') : nullptr;
    if (!slash)
        return true;
    const MallocPtr<WCHAR> encodedName(BytesStrToWStr(slash + 1));
    if (!encodedName)
        return false;
    WCHAR clearName[kClearNameChars];
    int encoded = 0;
    if (!KVCConvertEncodedKeyNameToClear(encodedName.get(), clearName, &encoded)) {
        LogStrings(TEXT("KVCGetKeys kids KVCConvertEncodedKeyNameToClear Failed"), encodedName.get(),
                   TEXT("InvalidName"), LOG_ERROR_LEVEL);
        return true;
    }
    LogStrings(TEXT("KVCGetKeys kids"), encodedName.get(), clearName, LOG_STEP_LEVEL);
    return list->Add(clearName);
}

// Reads one page; a page that isn't JSON is the last one. False: no memory.
bool TakePage(const char* body, TextList* list, ListWalk* walk)
{
    const JsonPtr page = JsonParseAnswer(TEXT("KVCGetKeys answer is not JSON"), body);
    if (!walk->TakeNextLink(page.get()))
        return false;
    json_object* value = JsonMember(page.get(), "value");
    if (!json_object_is_type(value, json_type_array))
        return true;
    const size_t count = json_object_array_length(value);
    for (size_t i = 0; i < count; i++) {
        if (!TakeItem(json_object_array_get_idx(value, i), list))
            return false;
    }
    return true;
}

WCHAR* TakeFirst(TextList& list)
{
    const size_t room = list.FirstLength() + 1;
    WCHAR* name = static_cast<WCHAR*>(calloc(room, sizeof(WCHAR)));
    if (name)
        list.TakeFirst(name, room);
    return name;
}

// For an empty list *names is NULL. False: no memory, and the outputs are unchanged.
bool HandOver(TextList& list, WCHAR*** names, DWORD* count)
{
    const size_t entries = list.count();
    if (entries > UINT32_MAX)
        return false;
    WCHAR** array = entries ? static_cast<WCHAR**>(calloc(entries, sizeof(WCHAR*))) : nullptr;
    for (size_t i = 0; i < entries; i++) {
        WCHAR* const name = array ? TakeFirst(list) : nullptr;
        if (!name) {
            KVCFreeNames(array, static_cast<DWORD>(i));
            return false;
        }
        array[i] = name;
    }
    *names = array;
    *count = static_cast<DWORD>(entries);
    return true;
}

}  // namespace

int KVCGetKeys(KVC* kvc, WCHAR*** names, DWORD* count)
{
    LogLine(TEXT("KVCGetKeys"), LOG_STEP_LEVEL);
    if (!kvc)
        return 0;
    if (!names || !count)
        return Fail(0, TEXT("KeyVaultClient::GetKeys Bad Count or Array pointer"));
    TextList list;
    ListWalk walk(kvc, kKeys);
    do {
        if (walk.Fetch() == ListPage::Failed)
            return 0;
        if (kvc->lastStatus != HTTP_OK || !kvc->lastBody)
            break;
        if (!TakePage(kvc->lastBody, &list, &walk))
            return Fail(0, kNoMemory);  // a partial list would look complete
    } while (walk.HasNext());
    if (!HandOver(list, names, count))
        return Fail(0, kNoMemory);
    return kvc->lastStatus == HTTP_OK ? 1 : 0;
}

void KVCFreeNames(WCHAR** names, DWORD count)
{
    for (DWORD i = 0; names && i < count; i++)
        free(names[i]);
    free(names);
}
