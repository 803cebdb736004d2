// Sets libcurl's options before a transfer.
#include <openssl/err.h>
#include <sys/socket.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/linux/win_constants.h"
#include "platform/linux/winhttp_exchange.h"
#include "platform/linux/winhttp_tls.h"

namespace winhttp {
namespace {

// A field without a value keeps libcurl from adding its own; the last node has the whole head.
constexpr const char* kUnwanted[] = {
    "Host:", "Accept:", "Content-Type:", "Content-Length:", "Expect:", "Transfer-Encoding:"};

// From KELVARO_CONNECT_TO; NULL without it.
ConnectTo ConnectToList()
{
    const char* entries = secure_getenv("KELVARO_CONNECT_TO");
    if (!entries)
        return nullptr;
    constexpr char kBlanks[] = " \t\r\n";
    ConnectTo list;
    for (const char* at = entries + std::strspn(entries, kBlanks); *at != '\0'; at += std::strspn(at, kBlanks)) {
        const size_t length = std::strcspn(at, kBlanks);
        curl_slist* const longer = curl_slist_append(list.get(), std::string(at, length).c_str());
        if (!longer)
            throw std::bad_alloc();
        list.release();
        list.reset(longer);
        at += length;
    }
    return list;
}

// libcurl's own sockets stay open in the programs that the host starts.
curl_socket_t OpenSocket(void*, curlsocktype, curl_sockaddr* address)
{
    return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

}  // namespace

template <class Value>
void Exchange::Set(CURLoption option, Value value)
{
    const CURLcode result = curl_easy_setopt(easy(), option, value);
    if (result == CURLE_OUT_OF_MEMORY)
        throw std::bad_alloc();
    if (result != CURLE_OK && error_ == 0)
        error_ = ErrorFromCurl(result, false);
}

// The options that all requests share.
void Exchange::Configure(const Timeouts& timeouts)
{
    constexpr long kNoLimit = 0x7FFFFFFF;
    Set(CURLOPT_NOSIGNAL, 1L);
    Set(CURLOPT_OPENSOCKETFUNCTION, &OpenSocket);
    Set(CURLOPT_PROTOCOLS_STR, "http,https");
    Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    Set(CURLOPT_FRESH_CONNECT, 1L);
    Set(CURLOPT_FORBID_REUSE, 1L);
    Set(CURLOPT_DNS_CACHE_TIMEOUT, 0L);
    Set(CURLOPT_PATH_AS_IS, 1L);
    Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    if (IsPrivileged())
        Set(CURLOPT_PROXY, "");
    Set(CURLOPT_CONNECTTIMEOUT_MS, timeouts.connect > 0 ? static_cast<long>(timeouts.connect) : kNoLimit);

    // Chain and host name are verified against the shared store; libcurl itself must not load roots.
    // New connections resume earlier TLS sessions if the server allows it.
    Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    Set(CURLOPT_SSL_VERIFYPEER, 1L);
    Set(CURLOPT_SSL_VERIFYHOST, (ignored_ & SECURITY_FLAG_IGNORE_CERT_CN_INVALID) ? 0L : 2L);
    // A session that began with a bad certificate must not be resumed by a request that would refuse it.
    Set(CURLOPT_SSL_SESSIONID_CACHE, ignored_ ? 0L : 1L);
    Set(CURLOPT_CA_CACHE_TIMEOUT, 0L);
    Set(CURLOPT_CAINFO, static_cast<char*>(nullptr));
    Set(CURLOPT_CAPATH, static_cast<char*>(nullptr));
    Set(CURLOPT_SSL_CTX_FUNCTION, &OnTlsContext);
    Set(CURLOPT_SSL_CTX_DATA, this);

    Set(CURLOPT_PREREQFUNCTION, &OnConnected);
    Set(CURLOPT_PREREQDATA, this);
    Set(CURLOPT_HEADERFUNCTION, &OnHeadLine);
    Set(CURLOPT_HEADERDATA, this);
    Set(CURLOPT_WRITEFUNCTION, &OnEntity);
    Set(CURLOPT_WRITEDATA, this);
}

void Exchange::Aim(const Target& target)
{
    connectTo_ = ConnectToList();
    Set(CURLOPT_CONNECT_TO, connectTo_.get());
    Set(CURLOPT_URL, UrlOf(target).c_str());
    if (target.secure && transfer_->Use(AcquireTlsShare()) != CURLE_OK)
        throw std::bad_alloc();

    size_t count = 0;
    for (const char* field : kUnwanted)
        fields_[count++].data = const_cast<char*>(field);
    fields_[count++].data = message_.head.data();
    for (size_t i = 0; i < count; ++i)
        fields_[i].next = i + 1 < count ? &fields_[i + 1] : nullptr;
    Set(CURLOPT_HTTPHEADER, fields_.data());

    const std::string_view verb = message_.verb;
    if (message_.body) {
        Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(message_.bodySize));
        Set(CURLOPT_POSTFIELDS, message_.body);
    } else if (verb == "HEAD") {
        Set(CURLOPT_NOBODY, 1L);
    } else {
        Set(CURLOPT_HTTPGET, 1L);
    }
    Set(CURLOPT_CUSTOMREQUEST, message_.verb);
}

CURLcode Exchange::OnTlsContext(CURL*, void* context, void* self)
{
    auto* const tls = static_cast<SSL_CTX*>(context);
    X509_STORE* const roots = static_cast<Exchange*>(self)->transfer_->tls()->roots();
    if (!roots)
        return CURLE_SSL_CACERT_BADFILE;
    SSL_CTX_set1_cert_store(tls, roots);
    if (SSL_CTX_set_app_data(tls, self) != 1)
        return CURLE_OUT_OF_MEMORY;
    SSL_CTX_set_info_callback(tls, &OnTlsState);
    if (static_cast<Exchange*>(self)->ignored_)
        SSL_CTX_set_verify(tls, SSL_VERIFY_PEER, &OnCertificate);
    return CURLE_OK;
}

// A handshake that fails with a protocol error was refused by one side; without one, the connection broke.
void Exchange::OnTlsState(const SSL* ssl, int where, int result)
{
    auto* const exchange = static_cast<Exchange*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
    if (where == SSL_CB_HANDSHAKE_DONE)
        exchange->peer_.reset(SSL_get1_peer_certificate(ssl));
    if (where != SSL_CB_CONNECT_EXIT || result > 0)
        return;
    const unsigned long error = ERR_peek_error();
    if (ERR_GET_LIB(error) == ERR_LIB_SSL && ERR_GET_REASON(error) != SSL_R_UNEXPECTED_EOF_WHILE_READING)
        exchange->tlsRefused_ = true;
}

// The flag that lets a certificate with this error pass, or 0.
static DWORD FlagOf(int error)
{
    switch (error) {
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
            return SECURITY_FLAG_IGNORE_UNKNOWN_CA;
        case X509_V_ERR_CERT_HAS_EXPIRED:
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return SECURITY_FLAG_IGNORE_CERT_DATE_INVALID;
        default:
            return 0;
    }
}

int Exchange::OnCertificate(int valid, X509_STORE_CTX* chain)
{
    const auto* const ssl =
        static_cast<const SSL*>(X509_STORE_CTX_get_ex_data(chain, SSL_get_ex_data_X509_STORE_CTX_idx()));
    const auto* const exchange = static_cast<const Exchange*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
    if (!valid && (FlagOf(X509_STORE_CTX_get_error(chain)) & exchange->ignored_)) {
        X509_STORE_CTX_set_error(chain, X509_V_OK);
        return 1;
    }
    return valid;
}

}  // namespace winhttp
