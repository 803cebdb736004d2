#include "vaultsim/listing.h"

#include <algorithm>

#include "vaultsim/base64url.h"

namespace vaultsim {

namespace {

constexpr size_t kMostResults = 25;

void ReadToken(const std::string& token, PageRequest& page)
{
    const Json json = Json::parse(FromBase64(token).value_or(""), nullptr, false);
    if (!json.is_object() || !json.contains("n") || !json.contains("p"))
        throw BadParameter("The request URI contains an invalid skiptoken.");
    page.after = json.at("n").get<std::string>();
    page.number = json.at("p").get<size_t>();
}

}  // namespace

PageRequest ReadPage(const VaultRequest& request)
{
    PageRequest page;
    if (const auto token = request.call.Query("$skiptoken"))
        ReadToken(*token, page);
    page.size = kMostResults;
    if (const auto most = request.call.Query("maxresults")) {
        if (!IsNumber(*most, 2) || std::stoul(*most) < 1 || std::stoul(*most) > kMostResults)
            throw BadParameter("The request URI contains an invalid value for maxresults: " + *most);
        page.maxResults = *most;
        page.size = std::stoul(*most);
    }
    const PagingSettings& paging = request.settings.paging;
    page.size = std::min(page.size, paging.maxPage);
    if ((paging.emptyEvery > 0 && page.number % paging.emptyEvery == 0) || (paging.firstEmpty && page.number == 1))
        page.size = 0;
    return page;
}

std::string NextLink(const VaultRequest& request, const PageRequest& page, const std::string& last)
{
    const Json token = {{"p", page.number + 1}, {"n", last}};
    std::string link = "https://" + request.vault->host + ":443/" + request.call.segments[0] +
                       "?api-version=" + request.apiVersion + "&$skiptoken=" + ToBase64Url(token.dump());
    if (!page.maxResults.empty())
        link += "&maxresults=" + page.maxResults;
    return link;
}

}  // namespace vaultsim
