// The walk over all keys of a vault, page by page.
#include <stdlib.h>
#include <string.h>

#include "keyvault/key_lookup.h"
#include "keyvault/list_page.h"
#include "keyvault/rest_call.h"
#include "support/codepage.h"
#include "support/guards.h"
#include "support/log.h"
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

// The names gathered so far; released unless they are handed over.
class NameList {
  public:
    NameList() = default;
    ~NameList() { KVCFreeNames(names_, count_); }
    NameList(const NameList&) = delete;
    NameList& operator=(const NameList&) = delete;

    // Makes room for `more` names. The room doubles, so that a walk over thousands of pages copies each pointer a few
    // times only. False: no memory, and the list is what it was.
    bool Reserve(size_t more)
    {
        if (more <= room_ - count_)
            return true;
        const size_t needed = count_ + more;
        const size_t room = needed > 2 * room_ ? needed : 2 * room_;
        if (room > SIZE_MAX / sizeof(WCHAR*))
            return false;
        void* grown = names_ ? realloc(names_, room * sizeof(WCHAR*)) : calloc(room, sizeof(WCHAR*));
        if (!grown)
            return false;
        names_ = static_cast<WCHAR**>(grown);
        room_ = room;
        return true;
    }

    // Adds a copy; there is room for it. False: no memory.
    bool Add(TextView name)
    {
        WCHAR* copy = static_cast<WCHAR*>(calloc(name.size() + 1, sizeof(WCHAR)));
        if (!copy)
            return false;
        name.copy(copy, name.size());
        names_[count_++] = copy;
        return true;
    }

    void HandOver(WCHAR*** names, DWORD* count)
    {
        *names = names_;
        *count = count_;
        names_ = nullptr;
        count_ = 0;
        room_ = 0;
    }

  private:
    WCHAR** names_ = nullptr;
    DWORD count_ = 0;
    size_t room_ = 0;
};

// Adds the key of one item, if it names one. False: no memory.
bool TakeItem(json_object* item, NameList* list)
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

// Reads one page. False: no memory; a page that is no JSON is the last.
bool TakePage(const char* body, NameList* list, ListWalk* walk)
{
    const JsonPtr page = JsonParse(body);
    if (!walk->TakeNextLink(page.get()))
        return false;
    json_object* value = JsonMember(page.get(), "value");
    if (!json_object_is_type(value, json_type_array))
        return true;
    const size_t count = json_object_array_length(value);
    if (!list->Reserve(count))
        return false;
    for (size_t i = 0; i < count; i++) {
        if (!TakeItem(json_object_array_get_idx(value, i), list))
            return false;
    }
    return true;
}

}  // namespace

int KVCGetKeys(KVC* kvc, WCHAR*** names, DWORD* count)
{
    LogLine(TEXT("KVCGetKeys"), LOG_STEP_LEVEL);
    if (!kvc)
        return 0;
    if (!names || !count) {
        LogLine(TEXT("KeyVaultClient::GetKeys Bad Count or Array pointer"), LOG_ERROR_LEVEL);
        return 0;
    }
    NameList list;
    ListWalk walk(kvc, kKeys);
    do {
        if (walk.Fetch() == ListPage::Failed)
            return 0;
        if (kvc->lastStatus != HTTP_OK || !kvc->lastBody)
            break;
        if (!TakePage(kvc->lastBody, &list, &walk)) {
            // A listing with holes would pass for the whole vault.
            LogLine(TEXT("KVCGetKeys Out of memory"), LOG_ERROR_LEVEL);
            return 0;
        }
    } while (walk.HasNext());
    list.HandOver(names, count);
    return kvc->lastStatus == HTTP_OK ? 1 : 0;
}

void KVCFreeNames(WCHAR** names, DWORD count)
{
    for (DWORD i = 0; names && i < count; i++)
        free(names[i]);
    free(names);
}
