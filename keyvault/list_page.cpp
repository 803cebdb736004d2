#include "keyvault/list_page.h"

#include <string.h>

#include <utility>

#include "keyvault/retry.h"
#include "support/fail.h"
#include "support/text.h"

const WCHAR* ListWalk::WhyEndless() const
{
    if (pages_ == kMostPages)
        return TEXT("more than 10000 pages");
    return next_ && current_ && TextEqual(next_->cStr, current_->cStr) ? TEXT("a link to its own page") : nullptr;
}

ListPage ListWalk::Fetch()
{
    if (const WCHAR* reason = WhyEndless()) {
        LogString(kind_.endless, reason, LOG_ERROR_LEVEL);
        return ListPage::Failed;
    }
    current_ = std::move(next_);
    pages_++;
    VaultRequest request;
    request.rawURL = current_ ? current_->cStr : nullptr;
    request.useCertificates = kind_.useCertificates;
    Retry retry(ThrottleRule(kind_.throttled));
    SendWithRetry(kvc_, retry,
                  [&] { return SendToVault(kvc_, request) ? 1 : Fail(0, kind_.failure, kvc_->lastStatus); });
    if (kvc_->lastStatus == HTTP_OK)
        return ListPage::Read;
    if (kvc_->lastStatus == HTTP_THROTTLED)
        return ListPage::Throttled;
    return Fail(ListPage::Failed, kind_.failure, kvc_->lastStatus);
}

bool ListWalk::TakeNextLink(json_object* page)
{
    const char* link = JsonMemberText(page, "nextLink");
    const char* tail = link ? strstr(link, kind_.collection) : nullptr;
    if (!tail)
        return true;
    next_.reset(BldStrNewStrFromAscii(tail));
    if (!next_)
        return false;
    LogString(kind_.nextLink, next_->cStr, LOG_STEP_LEVEL);
    return true;
}
