#include "certsync/certificate_listing.h"

#include <string.h>

#include "keyvault/json.h"
#include "keyvault/kvkey.h"
#include "keyvault/rest_call.h"
#include "keyvault/throttle.h"
#include "support/codepage.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/text.h"

namespace {

// What the pages have brought so far: the texts of all entries in one block, each terminated, a name and its
// thumbprint in turns.
class EntryList {
  public:
    EntryList() = default;
    ~EntryList() { free(texts_); }
    EntryList(const EntryList&) = delete;
    EntryList& operator=(const EntryList&) = delete;

    // False: no memory, and the list is what it was.
    bool Add(TextView clearName, TextView thumbprint)
    {
        thumbprint = thumbprint.substr(0, kCertSlotChars - 1);
        if (!Reserve(clearName.size() + thumbprint.size() + 2))
            return false;
        Append(clearName);
        Append(thumbprint);
        count_++;
        return true;
    }

    size_t count() const { return count_; }
    const WCHAR* texts() const { return texts_; }

  private:
    // The room doubles, so that a long walk copies each text a few times only.
    bool Reserve(size_t more)
    {
        if (more <= room_ - used_)
            return true;
        const size_t needed = used_ + more;
        const size_t room = needed > 2 * room_ ? needed : 2 * room_;
        // The count goes out as a LONG, and each entry has two characters at least.
        if (room > INT32_MAX / sizeof(WCHAR))
            return false;
        void* grown = realloc(texts_, room * sizeof(WCHAR));
        if (!grown)
            return false;
        texts_ = static_cast<WCHAR*>(grown);
        room_ = room;
        return true;
    }

    void Append(TextView text)
    {
        used_ += text.copy(texts_ + used_, text.size());
        texts_[used_++] = 0;
    }

    WCHAR* texts_ = nullptr;
    size_t used_ = 0;   // characters
    size_t room_ = 0;   // characters
    size_t count_ = 0;  // entries
};

void LogCount(const WCHAR* message, size_t number, LONG level)
{
    LogNumber(message, TEXT(""), static_cast<LONG>(number), level);
}

enum class Page { Read, Throttled, Failed };

// Leaves the page in lastBody.
Page FetchPage(KVC* kvc, const BldStr* rawURL)
{
    constexpr WCHAR kFailure[] = TEXT("KVCGetCerts REST Call Error");
    Throttle throttle;
    do {
        kvc->lastStatus = 0;
        if (!KVCDoKVRESTCall(kvc, rawURL ? rawURL->cStr : nullptr, 1, nullptr, TEXT("GET"), nullptr, nullptr, nullptr))
            LogError(kFailure, kvc->lastStatus, LOG_ERROR_LEVEL);
        if (kvc->lastStatus == HTTP_OK)
            return Page::Read;
        if (kvc->lastStatus != HTTP_THROTTLED) {
            LogError(kFailure, kvc->lastStatus, LOG_ERROR_LEVEL);
            return Page::Failed;
        }
    } while (throttle.WaitAndRetry(TEXT("KVCGetCerts ActionThrottled"), kvc->lastStatus));
    return Page::Throttled;
}

// Takes path and query of the next page, if there is one. The host of the link is dropped: the walk stays with its
// vault. False: no memory.
bool TakeNextLink(json_object* page, BldStrPtr* rawURL)
{
    const char* link = JsonMemberText(page, "nextLink");
    const char* tail = link ? strstr(link, "/certificates?") : nullptr;
    if (!tail)
        return true;
    rawURL->reset(BldStrNewStrFromAscii(tail));
    if (!*rawURL)
        return false;
    LogString(TEXT("KVCGetCerts rawURL nextlinkstr Found"), (*rawURL)->cStr, LOG_STEP_LEVEL);
    return true;
}

bool SkipElement(const WCHAR* message)
{
    LogLine(message, LOG_ERROR_LEVEL);
    return true;
}

// Adds the certificate of one element. An element that makes no sense is skipped. False: no memory.
bool TakeElement(json_object* element, size_t index, EntryList* list)
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
    return list->Add(View(clearName), View(thumbprint.get()));
}

// Reads one page. False: no memory; a page that is no JSON is the last.
bool TakePage(const char* body, EntryList* list, BldStrPtr* rawURL)
{
    const JsonPtr page = JsonParse(body);
    if (!TakeNextLink(page.get(), rawURL))
        return false;
    json_object* value = JsonMember(page.get(), "value");
    if (!json_object_is_type(value, json_type_array))
        return true;
    const size_t length = json_object_array_length(value);
    LogCount(TEXT("KVCGetCerts value len is"), length, LOG_STEP_LEVEL);
    LogCount(TEXT("KVCGetCerts value mycount is "), list->count(), LOG_STEP_LEVEL);
    if (!length)
        LogLine(TEXT("KVCGetCerts value len is Zero"), LOG_STEP_LEVEL);
    for (size_t i = 0; i < length; i++) {
        if (!TakeElement(json_object_array_get_idx(value, i), i, list))
            return false;
    }
    return true;
}

// One block: `count` pointers, and the slots that they point to behind them. NULL: no memory.
HeapPtr<WCHAR*> NewSlots(size_t count)
{
    const size_t size = count * (sizeof(WCHAR*) + kCertSlotChars * sizeof(WCHAR));
    WCHAR** block = static_cast<WCHAR**>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size));
    WCHAR* const slots = reinterpret_cast<WCHAR*>(block + count);
    for (size_t i = 0; block && i < count; i++)
        block[i] = slots + i * kCertSlotChars;
    return HeapPtr<WCHAR*>(block);
}

bool HandOver(const EntryList& list, WCHAR*** names, WCHAR*** thumbprints, LONG* count)
{
    HeapPtr<WCHAR*> nameSlots = NewSlots(list.count());
    HeapPtr<WCHAR*> thumbprintSlots = NewSlots(list.count());
    if (!nameSlots || !thumbprintSlots)
        return false;
    const WCHAR* text = list.texts();
    const auto fill = [&text](WCHAR* slot) {
        const TextView view = View(text);
        TextCopyCut(slot, kCertSlotChars, view);
        text += view.size() + 1;
    };
    for (size_t i = 0; i < list.count(); i++) {
        fill(nameSlots.get()[i]);
        fill(thumbprintSlots.get()[i]);
    }
    *names = nameSlots.release();
    *thumbprints = thumbprintSlots.release();
    *count = static_cast<LONG>(list.count());
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

int FailNoMemory(LONG* count)
{
    LogLine(TEXT("KVCGetCerts Out of memory"), LOG_ERROR_LEVEL);
    *count = 0;
    return 0;
}

}  // namespace

int KVCGetCerts(KVC* kvc, WCHAR*** WCHARCertsArray, WCHAR*** WCHARThumbprintArray, LONG* count)
{
    LogLine(TEXT("KVCGetCerts"), LOG_STEP_LEVEL);
    if (!ArgumentsGood(kvc, WCHARCertsArray, WCHARThumbprintArray, count))
        return 0;
    EntryList list;
    BldStrPtr rawURL;
    Page page;
    do {
        page = FetchPage(kvc, rawURL.get());
        if (page == Page::Failed)
            return 0;
        rawURL.reset();
        if (page == Page::Read && kvc->lastBody && !TakePage(kvc->lastBody, &list, &rawURL))
            return FailNoMemory(count);
    } while (rawURL);
    LogLine(TEXT("KVCGetCerts found sizes OK"), LOG_STEP_LEVEL);
    // A list that broke off is not handed out: nobody would release it.
    if (page == Page::Read && !HandOver(list, WCHARCertsArray, WCHARThumbprintArray, count))
        return FailNoMemory(count);
    LogLine(TEXT("KVCGetCerts Complete"), LOG_STEP_LEVEL);
    return page == Page::Read ? 1 : 0;
}

void KVCGetCertsFree(WCHAR** WCHARCertsArray, WCHAR** WCHARThumbprintArray)
{
    LogLine(TEXT("KVCGetCertsFree"), LOG_STEP_LEVEL);
    if (WCHARCertsArray)
        HeapFree(GetProcessHeap(), 0, WCHARCertsArray);
    if (WCHARThumbprintArray)
        HeapFree(GetProcessHeap(), 0, WCHARThumbprintArray);
}
