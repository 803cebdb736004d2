#include <curl/curl.h>

#include <sstream>
#include <stdexcept>

#include "bench/bare_client.h"

namespace bench {

struct BareClient::State {
    CURL* curl = curl_easy_init();
    curl_slist* connectTo = nullptr;
    std::string answer;

    ~State()
    {
        curl_slist_free_all(connectTo);
        curl_easy_cleanup(curl);
    }
};

static size_t OnEntity(char* bytes, size_t size, size_t count, void* context)
{
    static_cast<std::string*>(context)->append(bytes, size * count);
    return size * count;
}

BareClient::BareClient(bool resumesSessions) : state_(std::make_unique<State>())
{
    CURL* const curl = state_->curl;
    std::istringstream entries(getenv("KELVARO_CONNECT_TO"));
    for (std::string entry; entries >> entry;)
        state_->connectTo = curl_slist_append(state_->connectTo, entry.c_str());
    curl_easy_setopt(curl, CURLOPT_CONNECT_TO, state_->connectTo);
    curl_easy_setopt(curl, CURLOPT_CAINFO, getenv("SSL_CERT_FILE"));
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(curl, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(curl, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_SESSIONID_CACHE, resumesSessions ? 1L : 0L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &OnEntity);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &state_->answer);
}

BareClient::~BareClient() = default;

bool BareClient::ChoosesSessions()
{
    return true;
}

void BareClient::Send(const Recorded& request)
{
    CURL* const curl = state_->curl;
    state_->answer.clear();
    curl_slist* fields = nullptr;
    for (const std::string& line : request.headers)
        fields = curl_slist_append(fields, line.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, fields);
    curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
    if (request.body.empty()) {
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    } else {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.body.size()));
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.c_str());
    }
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    const CURLcode code = curl_easy_perform(curl);
    curl_slist_free_all(fields);
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    if (code != CURLE_OK || status != 200)
        throw std::runtime_error(request.url + ": " + curl_easy_strerror(code) + ", status " + std::to_string(status));
}

}  // namespace bench
