#include "bench/bare_client.h"

#include <sstream>
#include <stdexcept>

namespace bench {

static size_t OnEntity(char* bytes, size_t size, size_t count, void* context)
{
    static_cast<std::string*>(context)->append(bytes, size * count);
    return size * count;
}

BareClient::BareClient(bool resumesSessions) : curl_(curl_easy_init())
{
    std::istringstream entries(getenv("KELVARO_CONNECT_TO"));
    for (std::string entry; entries >> entry;)
        connectTo_ = curl_slist_append(connectTo_, entry.c_str());
    curl_easy_setopt(curl_, CURLOPT_CONNECT_TO, connectTo_);
    curl_easy_setopt(curl_, CURLOPT_CAINFO, getenv("SSL_CERT_FILE"));
    curl_easy_setopt(curl_, CURLOPT_PROXY, "");
    curl_easy_setopt(curl_, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(curl_, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(curl_, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(curl_, CURLOPT_SSL_SESSIONID_CACHE, resumesSessions ? 1L : 0L);
    curl_easy_setopt(curl_, CURLOPT_WRITEFUNCTION, &OnEntity);
    curl_easy_setopt(curl_, CURLOPT_WRITEDATA, &answer_);
}

BareClient::~BareClient()
{
    curl_slist_free_all(connectTo_);
    curl_easy_cleanup(curl_);
}

void BareClient::Send(const Recorded& request)
{
    answer_.clear();
    curl_slist* fields = nullptr;
    for (const std::string& line : request.headers)
        fields = curl_slist_append(fields, line.c_str());
    curl_easy_setopt(curl_, CURLOPT_HTTPHEADER, fields);
    curl_easy_setopt(curl_, CURLOPT_URL, request.url.c_str());
    if (request.body.empty()) {
        curl_easy_setopt(curl_, CURLOPT_HTTPGET, 1L);
    } else {
        curl_easy_setopt(curl_, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.body.size()));
        curl_easy_setopt(curl_, CURLOPT_POSTFIELDS, request.body.c_str());
    }
    curl_easy_setopt(curl_, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    const CURLcode code = curl_easy_perform(curl_);
    curl_slist_free_all(fields);
    long status = 0;
    curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &status);
    if (code != CURLE_OK || status != 200)
        throw std::runtime_error(request.url + ": " + curl_easy_strerror(code) + ", status " + std::to_string(status));
}

}  // namespace bench
