#include <curl/curl.h>

#include <sstream>
#include <stdexcept>

#include "bench/bare_client.h"
#include "platform/owner.h"

namespace bench {

using List = Owner<curl_slist, curl_slist_free_all>;

static void Append(List& list, const std::string& text)
{
    list.reset(curl_slist_append(list.release(), text.c_str()));
}

struct BareClient::State {
    Owner<CURL, curl_easy_cleanup> curl{curl_easy_init()};
    List connectTo;
    std::string answer;
};

static size_t OnEntity(char* bytes, size_t size, size_t count, void* context)
{
    static_cast<std::string*>(context)->append(bytes, size * count);
    return size * count;
}

BareClient::BareClient(bool resumesSessions) : state_(std::make_unique<State>())
{
    CURL* const curl = state_->curl.get();
    std::istringstream entries(getenv("KELVARO_CONNECT_TO"));
    for (std::string entry; entries >> entry;)
        Append(state_->connectTo, entry);
    curl_easy_setopt(curl, CURLOPT_CONNECT_TO, state_->connectTo.get());
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
    CURL* const curl = state_->curl.get();
    state_->answer.clear();
    List fields;
    for (const std::string& line : request.headers)
        Append(fields, line);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, fields.get());
    curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
    if (request.body.empty()) {
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    } else {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.body.size()));
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.c_str());
    }
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    const CURLcode code = curl_easy_perform(curl);
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    if (code != CURLE_OK || status != 200)
        throw std::runtime_error(request.url + ": " + curl_easy_strerror(code) + ", status " + std::to_string(status));
}

}  // namespace bench
