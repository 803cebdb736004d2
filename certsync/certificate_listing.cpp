#include "certsync/certificate_listing.h"

#include <string.h>

#include "keyvault/kvkey.h"
#include "keyvault/list_page.h"
#include "keyvault/rest_call.h"
#include "keyvault/text_list.h"
#include "support/codepage.h"
#include "support/guards.h"
#include "support/heap.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr ListKind kCertificates = {
    1,
    "/certificates?",
    TEXT("KVCGetCerts REST Call Error"),
    TEXT("KVCGetCerts ActionThrottled"),
    TEXT("KVCGetCerts rawURL nextlinkstr Found"),
    TEXT("KVCGetCerts Endless List"),
};

constexpr size_t kTextsPerEntry = 2;
static_assert(kCertSlotChars - 1 <= TextList::kLongestText && kClearNameLimit <= TextList::kLongestText);

void LogCount(const WCHAR* message, size_t number, LONG level)
{
    LogNumber(message, TEXT(""), static_cast<LONG>(number), level);
}

bool SkipElement(const WCHAR* message)
{
    LogLine(message, LOG_ERROR_LEVEL);
    return true;
}

// Adds an element's name, then its thumbprint. A malformed element is skipped. False: no memory.
bool TakeElement(json_object* element, size_t index, TextList* list)
{
    if (!element) {
        LogCount(TEXT("KVCGetCerts kids json_object_array_get_idx valueToken"), index, LOG_ERROR_LEVEL);
        return true;
    }
    json_object* idItem = JsonMember(element, "id");
    json_object* x5tItem = JsonMember(element, "x5t");
    if (!idItem || !x5tItem)
        return SkipElement(TEXT("KVCGetCerts kids json_object_object_get id or x5t NULL"));
    const char* id = json_object_get_string(idItem);
    const char* x5t = json_object_get_string(x5tItem);
    if (!id || !x5t)
        return SkipElement(TEXT("KVCGetCerts kids json_object_get_string iditem or x5t failed"));
    const char* slash = strrchr(id, '/');
    if (!slash)
        return SkipElement(TEXT("KVCGetCerts kids strrchr / failed"));
    const MallocPtr<WCHAR> encodedName(BytesStrToWStr(slash + 1));
    const MallocPtr<WCHAR> thumbprint(BytesStrToWStr(x5t));
    if (!encodedName || !thumbprint)
        return SkipElement(TEXT("KVCGetCerts kids BytesStrToWStr NULL"));
    WCHAR clearName[kClearNameChars];
    int encoded = 0;
    if (!KVCConvertEncodedKeyNameToClear(encodedName.get(), clearName, &encoded)) {
        LogStrings(TEXT("KVCGetCerts kids KVCConvertEncodedKeyNameToClear FAILED"), encodedName.get(),
                   TEXT("InvalidName"), LOG_ERROR_LEVEL);
        return true;
    }
    LogStrings(TEXT("KVCGetCerts kids"), encodedName.get(), clearName, LOG_STEP_LEVEL);
    return list->Add(View(clearName)) && list->Add(View(thumbprint.get()).substr(0, kCertSlotChars - 1));
}

// Reads one page; if it isn't JSON, it is the last. False: no memory.
bool TakePage(const char* body, TextList* list, ListWalk* walk)
{
    const JsonPtr page = JsonParseAnswer(TEXT("KVCGetCerts answer is not JSON"), body);
    if (!walk->TakeNextLink(page.get()))
        return false;
    json_object* value = JsonMember(page.get(), "value");
    if (!json_object_is_type(value, json_type_array))
        return true;
    const size_t length = json_object_array_length(value);
    LogCount(TEXT("KVCGetCerts value len is"), length, LOG_STEP_LEVEL);
    LogCount(TEXT("KVCGetCerts value mycount is "), list->count() / kTextsPerEntry, LOG_STEP_LEVEL);
    if (!length)
        LogLine(TEXT("KVCGetCerts value len is Zero"), LOG_STEP_LEVEL);
    for (size_t i = 0; i < length; i++) {
        if (!TakeElement(json_object_array_get_idx(value, i), i, list))
            return false;
    }
    return true;
}

// One block: `count` pointers, followed by the slots that they point to. NULL: no memory.
HeapPtr<WCHAR*> NewSlots(size_t count)
{
    constexpr uint64_t kBytesPerSlot = sizeof(WCHAR*) + kCertSlotChars * sizeof(WCHAR);
    HeapPtr<WCHAR*> block(static_cast<WCHAR**>(HeapAllocSized(HEAP_ZERO_MEMORY, count * kBytesPerSlot)));
    if (!block)
        return nullptr;
    WCHAR* const slots = reinterpret_cast<WCHAR*>(block.get() + count);
    for (size_t i = 0; i < count; i++)
        block.get()[i] = slots + i * kCertSlotChars;
    return block;
}

bool HandOver(TextList& list, WCHAR*** names, WCHAR*** thumbprints, LONG* count)
{
    const size_t entries = list.count() / kTextsPerEntry;
    if (entries > INT32_MAX)
        return false;
    HeapPtr<WCHAR*> nameSlots = NewSlots(entries);
    HeapPtr<WCHAR*> thumbprintSlots = NewSlots(entries);
    if (!nameSlots || !thumbprintSlots)
        return false;
    for (size_t i = 0; i < entries; i++) {
        list.TakeFirst(nameSlots.get()[i], kCertSlotChars);
        list.TakeFirst(thumbprintSlots.get()[i], kCertSlotChars);
    }
    *count = static_cast<LONG>(entries);
    *names = nameSlots.release();
    *thumbprints = thumbprintSlots.release();
    return true;
}

bool ArgumentsGood(const KVC* kvc, WCHAR*** names, WCHAR*** thumbprints, const LONG* count)
{
    if (!kvc)
        LogLine(TEXT("KVCGetCerts kvc NULL - skipping"), LOG_STEP_LEVEL);
    else if (!count)
        LogLine(TEXT("KVCGetCerts Bad Count"), LOG_ERROR_LEVEL);
    else if (!names)
        LogLine(TEXT("KVCGetCerts Bad WCHARCertsArray Array pointer"), LOG_ERROR_LEVEL);
    else if (!thumbprints)
        LogLine(TEXT("KVCGetCerts Bad WCHARThumbprintArray pointer"), LOG_ERROR_LEVEL);
    else
        return true;
    return false;
}

bool FailNoMemory(LONG* count)
{
    LogLine(TEXT("KVCGetCerts Out of memory"), LOG_ERROR_LEVEL);
    *count = 0;
    return false;
}

}  // namespace

bool KVCGetCerts(KVC* kvc, WCHAR*** WCHARCertsArray, WCHAR*** WCHARThumbprintArray, LONG* count)
{
    LogLine(TEXT("KVCGetCerts"), LOG_STEP_LEVEL);
    if (!ArgumentsGood(kvc, WCHARCertsArray, WCHARThumbprintArray, count))
        return false;
    TextList list;
    ListWalk walk(kvc, kCertificates);
    ListPage page;
    do {
        page = walk.Fetch();
        if (page == ListPage::Failed)
            return false;
        if (page == ListPage::Read && kvc->lastBody && !TakePage(kvc->lastBody, &list, &walk))
            return FailNoMemory(count);
    } while (walk.HasNext());
    LogLine(TEXT("KVCGetCerts found sizes OK"), LOG_STEP_LEVEL);
    // An incomplete list isn't returned: the caller wouldn't release it.
    if (page == ListPage::Read && !HandOver(list, WCHARCertsArray, WCHARThumbprintArray, count))
        return FailNoMemory(count);
    LogLine(TEXT("KVCGetCerts Complete"), LOG_STEP_LEVEL);
    return page == ListPage::Read;
}

void KVCGetCertsFree(WCHAR** WCHARCertsArray, WCHAR** WCHARThumbprintArray)
{
    LogLine(TEXT("KVCGetCertsFree"), LOG_STEP_LEVEL);
    if (WCHARCertsArray)
        HeapFree(GetProcessHeap(), 0, WCHARCertsArray);
    if (WCHARThumbprintArray)
        HeapFree(GetProcessHeap(), 0, WCHARThumbprintArray);
}
