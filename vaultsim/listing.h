// Pages of a listing.
#pragma once

#include <string>

#include "vaultsim/refusal.h"
#include "vaultsim/request.h"

namespace vaultsim {

// Where a page starts and how long it is.
struct PageRequest {
    std::string after;  // the last name of the previous page; empty: from the start
    size_t number = 1;  // of the page
    size_t size = 0;    // 0 for a page without items
    std::string maxResults;
};

// Reads `maxresults` and `$skiptoken`; throws a Refusal if they are wrong.
PageRequest ReadPage(const VaultRequest& request);
// https://HOST:443/COLLECTION?api-version=V&$skiptoken=TOKEN
std::string NextLink(const VaultRequest& request, const PageRequest& page, const std::string& last);

// A page of `objects`, which the caller has locked; `item` makes the JSON of each.
template <class Object, class Item>
Answer ListPage(const VaultRequest& request, const ByName<Object>& objects, Item item)
{
    const PageRequest page = ReadPage(request);
    auto at = page.after.empty() ? objects.begin() : objects.upper_bound(page.after);
    Json value = Json::array();
    std::string last = page.after;
    for (; at != objects.end() && value.size() < page.size; ++at) {
        value.push_back(item(at->second));
        last = at->first;
    }
    Json body = {{"value", value}, {"nextLink", nullptr}};
    if (at != objects.end())
        body["nextLink"] = NextLink(request, page, last);
    return JsonAnswer(200, body);
}

}  // namespace vaultsim
