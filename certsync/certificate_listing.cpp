#include "certsync/certificate_listing.h"

#include <string.h>

#include "keyvault/kvkey.h"
#include "keyvault/list_page.h"
#include "keyvault/rest_call.h"
#include "support/codepage.h"
#include "support/guards.h"
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

// Texts of entries, each terminated, a name and its thumbprint in turns.
struct TextChunk {
    TextChunk* next;
    size_t used;  // characters
    WCHAR texts[128 * 1024 - 16];
};
constexpr size_t kChunkChars = sizeof(TextChunk::texts) / sizeof(WCHAR);
static_assert(kChunkChars >= kClearNameChars + kCertSlotChars, "an entry fits a chunk");

// What the pages have brought so far, in chunks that go back one by one while the list is copied out, so that a long
// list is never in memory twice.
class EntryList {
  public:
    EntryList() = default;
    ~EntryList()
    {
        while (first_)
            DropFirst();
    }
    EntryList(const EntryList&) = delete;
    EntryList& operator=(const EntryList&) = delete;

    // clearName: under kClearNameChars characters. False: no memory, and the list is what it was.
    bool Add(TextView clearName, TextView thumbprint)
    {
        thumbprint = thumbprint.substr(0, kCertSlotChars - 1);
        const size_t needed = clearName.size() + thumbprint.size() + 2;
        if (count_ == INT32_MAX || ((!last_ || needed > kChunkChars - last_->used) && !Extend()))
            return false;
        Append(clearName);
        Append(thumbprint);
        count_++;
        return true;
    }

    size_t count() const { return count_; }

    // Calls take(index, name, thumbprint) for each entry, in order, and leaves the list empty.
    template <typename Take>
    void TakeOut(Take take)
    {
        size_t index = 0;
        for (; first_; DropFirst()) {
            for (size_t at = 0; at < first_->used;) {
                const TextView name = View(first_->texts + at);
                const TextView thumbprint = View(first_->texts + at + name.size() + 1);
                take(index++, name, thumbprint);
                at += name.size() + thumbprint.size() + 2;
            }
        }
        count_ = 0;
    }

  private:
    bool Extend()
    {
        TextChunk* chunk = static_cast<TextChunk*>(malloc(sizeof(TextChunk)));
        if (!chunk)
            return false;
        chunk->next = nullptr;
        chunk->used = 0;
        (last_ ? last_->next : first_) = chunk;
        last_ = chunk;
        return true;
    }

    void DropFirst()
    {
        TextChunk* const next = first_->next;
        free(first_);
        first_ = next;
        if (!next)
            last_ = nullptr;
    }

    void Append(TextView text)
    {
        last_->used += text.copy(last_->texts + last_->used, text.size());
        last_->texts[last_->used++] = 0;
    }

    TextChunk* first_ = nullptr;
    TextChunk* last_ = nullptr;
    size_t count_ = 0;  // entries
};

void LogCount(const WCHAR* message, size_t number, LONG level)
{
    LogNumber(message, TEXT(""), static_cast<LONG>(number), level);
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
bool TakePage(const char* body, EntryList* list, ListWalk* walk)
{
    const JsonPtr page = JsonParse(body);
    if (!walk->TakeNextLink(page.get()))
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

bool HandOver(EntryList& list, WCHAR*** names, WCHAR*** thumbprints, LONG* count)
{
    HeapPtr<WCHAR*> nameSlots = NewSlots(list.count());
    HeapPtr<WCHAR*> thumbprintSlots = NewSlots(list.count());
    if (!nameSlots || !thumbprintSlots)
        return false;
    *count = static_cast<LONG>(list.count());
    list.TakeOut([&](size_t index, TextView name, TextView thumbprint) {
        TextCopyCut(nameSlots.get()[index], kCertSlotChars, name);
        TextCopyCut(thumbprintSlots.get()[index], kCertSlotChars, thumbprint);
    });
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
    ListWalk walk(kvc, kCertificates);
    ListPage page;
    do {
        page = walk.Fetch();
        if (page == ListPage::Failed)
            return 0;
        if (page == ListPage::Read && kvc->lastBody && !TakePage(kvc->lastBody, &list, &walk))
            return FailNoMemory(count);
    } while (walk.HasNext());
    LogLine(TEXT("KVCGetCerts found sizes OK"), LOG_STEP_LEVEL);
    // A list that broke off is not handed out: nobody would release it.
    if (page == ListPage::Read && !HandOver(list, WCHARCertsArray, WCHARThumbprintArray, count))
        return FailNoMemory(count);
    LogLine(TEXT("KVCGetCerts Complete"), LOG_STEP_LEVEL);
    return page == ListPage::Read ? 1 : 0;
}

void KVCGetCertsFree(WCHAR** WCHARCertsArray, WCHAR** WCHARThumbprintArray)
{
    LogLine(TEXT("KVCGetCertsFree"), LOG_STEP_LEVEL);
    if (WCHARCertsArray)
        HeapFree(GetProcessHeap(), 0, WCHARCertsArray);
    if (WCHARThumbprintArray)
        HeapFree(GetProcessHeap(), 0, WCHARThumbprintArray);
}
