// One page of a listing: the parts that the lists of keys and of certificates share.
#pragma once

#include "keyvault/json.h"
#include "keyvault/kvc.h"
#include "support/guards.h"

// What sets one list apart.
struct ListKind {
    int useCertificates;
    const char* collection;  // with the question mark that follows it in a link: "/keys?"
    const WCHAR* failure;    // texts of the log
    const WCHAR* throttled;
    const WCHAR* nextLink;
    const WCHAR* endless;
};

enum class ListPage { Read, Throttled, Failed };

// A walk from page to page. A server decides how long a list is, so the walk fails when a page's link leads to that
// page again, and after kMostPages.
class ListWalk {
  public:
    static constexpr int kMostPages = 10000;

    // kvc: signed in, outlives the walk.
    ListWalk(KVC* kvc, const ListKind& kind) : kvc_(kvc), kind_(kind) {}

    // Leaves the next page in lastBody. Failures are logged. Throttled: all waits are used up.
    ListPage Fetch();

    // Takes path and query of the page behind `page`, if there is one. The host of the link is dropped: the walk stays
    // with its vault. False: no memory.
    bool TakeNextLink(json_object* page);

    bool HasNext() const { return next_ != nullptr; }

  private:
    // Why the walk must end here; NULL when it may go on.
    const WCHAR* WhyEndless() const;

    KVC* kvc_;
    const ListKind& kind_;
    BldStrPtr current_;  // path and query of the page in lastBody, NULL for the first
    BldStrPtr next_;
    int pages_ = 0;
};
