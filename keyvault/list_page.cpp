#include "keyvault/list_page.h"

#include <string.h>

#include "keyvault/rest_call.h"
#include "keyvault/throttle.h"
#include "support/log.h"

ListPage FetchListPage(KVC* kvc, const ListKind& kind, const BldStr* rawURL)
{
    Throttle throttle;
    do {
        kvc->lastStatus = 0;
        if (!KVCDoKVRESTCall(kvc, rawURL ? rawURL->cStr : nullptr, kind.useCertificates, nullptr, TEXT("GET"), nullptr,
                             nullptr, nullptr))
            LogError(kind.failure, kvc->lastStatus, LOG_ERROR_LEVEL);
        if (kvc->lastStatus == HTTP_OK)
            return ListPage::Read;
        if (kvc->lastStatus != HTTP_THROTTLED) {
            LogError(kind.failure, kvc->lastStatus, LOG_ERROR_LEVEL);
            return ListPage::Failed;
        }
    } while (throttle.WaitAndRetry(kind.throttled, kvc->lastStatus));
    return ListPage::Throttled;
}

bool TakeNextLink(json_object* page, const ListKind& kind, BldStrPtr* rawURL)
{
    const char* link = JsonMemberText(page, "nextLink");
    const char* tail = link ? strstr(link, kind.collection) : nullptr;
    if (!tail)
        return true;
    rawURL->reset(BldStrNewStrFromAscii(tail));
    if (!*rawURL)
        return false;
    LogString(kind.nextLink, (*rawURL)->cStr, LOG_STEP_LEVEL);
    return true;
}
