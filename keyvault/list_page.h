// Listing page by page: what the lists of keys and of certificates share.
#pragma once

#include "keyvault/json.h"
#include "keyvault/kvc.h"
#include "support/guards.h"

// What differs between the lists.
struct ListKind {
    int useCertificates;
    const char* collection;  // as in a link, with the question mark: "/keys?"
    const WCHAR* failure;    // texts of the log
    const WCHAR* throttled;
    const WCHAR* nextLink;
    const WCHAR* endless;
};

enum class ListPage { Read, Throttled, Failed };

// Walks from page to page. The server controls the length of the list, so the walk fails if a page links to itself, and
// after kMostPages.
class ListWalk {
  public:
    static constexpr int kMostPages = 10000;

    // kvc: signed in, outlives the walk.
    ListWalk(KVC* kvc, const ListKind& kind) : kvc_(kvc), kind_(kind) {}

    // Reads the next page into lastBody. Failures are logged. Throttled: still throttled after all retries.
    ListPage Fetch();

    // Keeps path and query of the link from `page` to the next one, if it has any, but not the host: the walk stays in
    // its vault. False: no memory.
    bool TakeNextLink(json_object* page);

    bool HasNext() const { return next_ != nullptr; }

  private:
    // Why the walk must end here; NULL if it may continue.
    const WCHAR* WhyEndless() const;

    KVC* kvc_;
    const ListKind& kind_;
    BldStrPtr current_;  // path and query of the page in lastBody; NULL for the first
    BldStrPtr next_;
    int pages_ = 0;
};
