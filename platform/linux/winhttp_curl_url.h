// libcurl's URL parser. Functions here throw std::bad_alloc.
#pragma once

#include <curl/curl.h>

#include <new>

#include "platform/owner.h"

namespace winhttp {

using Url = Owner<CURLU, curl_url_cleanup>;
using CurlText = Owner<char, curl_free>;

// A malformed URL is not an error, running out of memory is.
inline bool Good(CURLUcode code)
{
    if (code == CURLUE_OUT_OF_MEMORY)
        throw std::bad_alloc();
    return code == CURLUE_OK;
}

inline Url NewUrl()
{
    Url url(curl_url());
    if (!url)
        throw std::bad_alloc();
    return url;
}

// Replaces the URL, or resolves a relative one against it. Unchanged if it returns false.
inline bool SetUrl(const Url& url, const char* text, unsigned flags)
{
    return Good(curl_url_set(url.get(), CURLUPART_URL, text, flags));
}

// NULL when the URL has no such part.
inline CurlText PartOf(const Url& url, CURLUPart part, unsigned flags)
{
    char* text = nullptr;
    Good(curl_url_get(url.get(), part, &text, flags));
    return CurlText(text);
}

}  // namespace winhttp
