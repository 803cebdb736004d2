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
};

enum class ListPage { Read, Throttled, Failed };

// Leaves the page in lastBody. rawURL: path and query of the page, NULL for the first. Throttled: all waits are used
// up.
ListPage FetchListPage(KVC* kvc, const ListKind& kind, const BldStr* rawURL);

// Takes path and query of the next page, if there is one. The host of the link is dropped: the walk stays with its
// vault. False: no memory.
bool TakeNextLink(json_object* page, const ListKind& kind, BldStrPtr* rawURL);
