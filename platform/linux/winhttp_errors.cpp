#include "platform/linux/win_constants.h"
#include "platform/linux/winhttp_exchange.h"

namespace winhttp {

LONG ErrorFromCurl(CURLcode code, bool tlsRefused)
{
    switch (code) {
        case CURLE_OK:
            return 0;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return ERROR_WINHTTP_NAME_NOT_RESOLVED;
        case CURLE_COULDNT_CONNECT:
        case CURLE_PROXY:
            return ERROR_WINHTTP_CANNOT_CONNECT;
        case CURLE_OPERATION_TIMEDOUT:
            return ERROR_WINHTTP_TIMEOUT;
        case CURLE_SSL_CONNECT_ERROR:
            return tlsRefused ? ERROR_WINHTTP_SECURE_FAILURE : ERROR_WINHTTP_CONNECTION_ERROR;
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_USE_SSL_FAILED:
            return ERROR_WINHTTP_SECURE_FAILURE;
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_UNSUPPORTED_PROTOCOL:  // a response without a status line, taken for HTTP/0.9
        case CURLE_BAD_CONTENT_ENCODING:
            return ERROR_WINHTTP_INVALID_SERVER_RESPONSE;
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_GOT_NOTHING:
        case CURLE_PARTIAL_FILE:
            return ERROR_WINHTTP_CONNECTION_ERROR;
        case CURLE_URL_MALFORMAT:
            return ERROR_WINHTTP_INVALID_URL;
        case CURLE_OUT_OF_MEMORY:
            return ERROR_NOT_ENOUGH_MEMORY;
        default:
            return ERROR_WINHTTP_INTERNAL_ERROR;
    }
}

}  // namespace winhttp
