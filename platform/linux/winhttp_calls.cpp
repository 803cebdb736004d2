#include "platform/linux/winhttp.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>

#include "platform/linux/outcome.h"
#include "platform/linux/text.h"
#include "platform/linux/win_certificates.h"
#include "platform/linux/winhttp_handles.h"

namespace winhttp {

namespace {

bool IsOpen(const Handle* handle)
{
    return handle &&
           (handle->kind == Kind::session || handle->kind == Kind::connection || handle->kind == Kind::request);
}

template <class Object>
Object& Resolve(HINTERNET value)
{
    auto* const handle = static_cast<Handle*>(value);
    if (!IsOpen(handle))
        throw Failure(ERROR_INVALID_HANDLE);
    if (handle->kind != Object::kKind)
        throw Failure(ERROR_WINHTTP_INCORRECT_HANDLE_TYPE);
    return *static_cast<Object*>(handle);
}

// A request whose response has been received.
Request& ResolveAnswered(HINTERNET value)
{
    Request& request = Resolve<Request>(value);
    if (!request.received)
        throw Failure(ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
    return request;
}

// The handle of a new object.
HINTERNET Publish(std::unique_ptr<Handle> object)
{
    return object.release();
}

bool IsVerb(std::string_view verb)
{
    return !verb.empty() && std::all_of(verb.begin(), verb.end(), [](char c) {
        return c > 0x20 && c < 0x7F && !std::strchr("()<>@,;:\\\"/[]?={}", c);
    });
}

// Converts a head of at most 64 KiB. The two-call contract: sizes in bytes, without the terminator after success.
LONG CopyText(std::string_view text, LPVOID buffer, LPDWORD length)
{
    const int size = static_cast<int>(text.size());
    const int units = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
    const DWORD needed = (static_cast<DWORD>(units) + 1) * static_cast<DWORD>(sizeof(WCHAR));
    if (!buffer || *length < needed) {
        *length = needed;
        return ERROR_INSUFFICIENT_BUFFER;
    }
    auto* const out = static_cast<WCHAR*>(buffer);
    MultiByteToWideChar(CP_UTF8, 0, text.data(), size, out, units);
    out[units] = 0;
    *length = needed - static_cast<DWORD>(sizeof(WCHAR));
    return ERROR_SUCCESS;
}

LONG CopyNumber(DWORD number, LPVOID buffer, LPDWORD length)
{
    const DWORD room = *length;
    *length = sizeof(number);
    if (!buffer || room < sizeof(number))
        return ERROR_INSUFFICIENT_BUFFER;
    std::memcpy(buffer, &number, sizeof(number));
    return ERROR_SUCCESS;
}

void TakeHeaders(Request* request, LPCWSTR headers, DWORD length)
{
    WideView block = ViewOf(headers);
    if (headers && length != static_cast<DWORD>(-1))
        block = WideView(headers, length);
    if (block.size() > INT_MAX)
        throw Failure(ERROR_INVALID_PARAMETER);
    const int units = static_cast<int>(block.size());
    const auto convert = [&](char* out, int room) {
        return units == 0 ? 0 : WideCharToMultiByte(CP_UTF8, 0, block.data(), units, out, room, nullptr, nullptr);
    };
    request->callerLines.resize(static_cast<size_t>(convert(nullptr, 0)));
    convert(request->callerLines.data(), static_cast<int>(request->callerLines.size()));
    if (!IsHeaderBlock(request->callerLines))
        throw Failure(ERROR_INVALID_PARAMETER);
}

// Waits for entity bytes and copies what has arrived. Bytes before a broken connection are returned first; the next
// call reports the error.
LONG ReadEntity(Exchange* exchange, char* buffer, DWORD size, DWORD* count)
{
    if (size == 0)
        return ERROR_SUCCESS;
    const LONG error = exchange->WaitForEntity();
    const std::string_view entity = exchange->Buffered().substr(0, size);
    std::copy(entity.begin(), entity.end(), buffer);
    *count = static_cast<DWORD>(entity.size());
    exchange->Consume(entity.size());
    return error;
}

// Never report more than WinHTTP's read buffer holds.
constexpr size_t kReadBuffer = 8192;

}  // namespace
}  // namespace winhttp

using namespace winhttp;

HINTERNET WINAPI WinHttpOpen(LPCWSTR agent, DWORD accessType, LPCWSTR proxyName, LPCWSTR proxyBypass, DWORD flags)
{
    return ResultOf([&] {
        auto session = std::make_unique<Session>();
        if (accessType != WINHTTP_ACCESS_TYPE_DEFAULT_PROXY || proxyName || proxyBypass || flags != 0)
            throw Failure(ERROR_INVALID_PARAMETER);
        session->agent = ToUtf8(ViewOf(agent));
        return Publish(std::move(session));
    });
}

BOOL WINAPI WinHttpSetTimeouts(HINTERNET handle, int resolveMs, int connectMs, int sendMs, int receiveMs)
{
    return Succeeds([&] {
        if (resolveMs < -1 || connectMs < -1 || sendMs < -1 || receiveMs < -1)
            throw Failure(ERROR_INVALID_PARAMETER);
        auto* const object = static_cast<Handle*>(handle);
        const bool ofRequest = IsOpen(object) && object->kind == Kind::request;
        Timeouts& timeouts = ofRequest ? Resolve<Request>(handle).timeouts : Resolve<Session>(handle).timeouts;
        timeouts = {connectMs, sendMs, receiveMs};
    });
}

HINTERNET WINAPI WinHttpConnect(HINTERNET session, LPCWSTR host, INTERNET_PORT port, DWORD)
{
    return ResultOf([&] {
        auto connection = std::make_unique<Connection>(&Resolve<Session>(session));
        if (!host)
            throw Failure(ERROR_INVALID_PARAMETER);
        connection->port = port;
        if (!MakeHost(host, &connection->host))
            throw Failure(ERROR_WINHTTP_INVALID_URL);
        return Publish(std::move(connection));
    });
}

HINTERNET WINAPI WinHttpOpenRequest(HINTERNET connection, LPCWSTR verb, LPCWSTR path, LPCWSTR, LPCWSTR, LPCWSTR*,
                                    DWORD flags)
{
    return ResultOf([&] {
        Connection& owner = Resolve<Connection>(connection);
        auto request = std::make_unique<Request>(&owner);
        request->verb = verb ? ToUtf8(verb) : "GET";
        if (!IsVerb(request->verb) || (flags & ~WINHTTP_FLAG_SECURE) != 0)
            throw Failure(ERROR_INVALID_PARAMETER);
        const bool secure = (flags & WINHTTP_FLAG_SECURE) != 0;
        const INTERNET_PORT usual = secure ? INTERNET_DEFAULT_HTTPS_PORT : INTERNET_DEFAULT_HTTP_PORT;
        request->timeouts = request->session().timeouts;
        request->origin = {secure, owner.port != 0 ? owner.port : usual, owner.host, EscapePath(ViewOf(path))};
        return Publish(std::move(request));
    });
}

BOOL WINAPI WinHttpSendRequest(HINTERNET handle, LPCWSTR headers, DWORD headersLength, LPVOID optional,
                               DWORD optionalLength, DWORD totalLength, DWORD_PTR)
{
    return Succeeds([&] {
        Request& request = Resolve<Request>(handle);
        if (totalLength != optionalLength || (!optional && optionalLength != 0))
            throw Failure(ERROR_INVALID_PARAMETER);
        TakeHeaders(&request, headers, headersLength);
        request.body = static_cast<const char*>(optional);
        request.bodySize = optionalLength;
        return request.Send();
    });
}

BOOL WINAPI WinHttpReceiveResponse(HINTERNET handle, LPVOID)
{
    return Succeeds([&] {
        Request& request = Resolve<Request>(handle);
        if (!request.sent || request.received)
            throw Failure(ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
        return request.Receive();
    });
}

BOOL WINAPI WinHttpQueryDataAvailable(HINTERNET handle, LPDWORD available)
{
    return Succeeds([&] {
        Exchange& exchange = ResolveAnswered(handle).exchange;
        const LONG error = exchange.WaitForEntity();
        if (available)
            *available = static_cast<DWORD>(std::min(exchange.Buffered().size(), kReadBuffer));
        return error;
    });
}

BOOL WINAPI WinHttpReadData(HINTERNET handle, LPVOID buffer, DWORD size, LPDWORD read)
{
    return Succeeds([&] {
        Exchange& exchange = ResolveAnswered(handle).exchange;
        if (!buffer && size != 0)
            throw Failure(ERROR_INVALID_PARAMETER);
        DWORD unused;
        DWORD* const count = read ? read : &unused;
        *count = 0;
        return ReadEntity(&exchange, static_cast<char*>(buffer), size, count);
    });
}

BOOL WINAPI WinHttpQueryHeaders(HINTERNET handle, DWORD infoLevel, LPCWSTR, LPVOID buffer, LPDWORD length, LPDWORD)
{
    return Succeeds([&]() -> LONG {
        const Exchange& exchange = ResolveAnswered(handle).exchange;
        if (length && infoLevel == (WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER))
            return CopyNumber(exchange.Status(), buffer, length);
        if (length && infoLevel == WINHTTP_QUERY_RAW_HEADERS_CRLF)
            return CopyText(exchange.Head(), buffer, length);
        return ERROR_INVALID_PARAMETER;
    });
}

BOOL WINAPI WinHttpSetOption(HINTERNET handle, DWORD option, LPVOID buffer, DWORD length)
{
    constexpr DWORD kKnown =
        SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_CN_INVALID | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID;
    return Succeeds([&] {
        Request& request = Resolve<Request>(handle);
        DWORD flags = 0;
        if (option != WINHTTP_OPTION_SECURITY_FLAGS || !buffer || length != sizeof(flags))
            throw Failure(ERROR_INVALID_PARAMETER);
        std::memcpy(&flags, buffer, sizeof(flags));
        if (flags & ~kKnown)
            throw Failure(ERROR_INVALID_PARAMETER);
        request.ignoredCertificateErrors = flags;
    });
}

BOOL WINAPI WinHttpQueryOption(HINTERNET handle, DWORD option, LPVOID buffer, LPDWORD length)
{
    return Succeeds([&]() -> LONG {
        X509* const peer = Resolve<Request>(handle).exchange.Peer();
        if (option != WINHTTP_OPTION_SERVER_CERT_CONTEXT || !buffer || !length || *length < sizeof(void*))
            return ERROR_INVALID_PARAMETER;
        if (!peer)
            return ERROR_WINHTTP_INCORRECT_HANDLE_STATE;
        unsigned char* der = nullptr;
        const int size = i2d_X509(peer, &der);
        if (size <= 0)
            return ERROR_NOT_ENOUGH_MEMORY;
        const PCCERT_CONTEXT context = CertCreateCertificateContext(X509_ASN_ENCODING, der, static_cast<DWORD>(size));
        OPENSSL_free(der);
        *static_cast<PCCERT_CONTEXT*>(buffer) = context;
        *length = sizeof(void*);
        return context ? ERROR_SUCCESS : static_cast<LONG>(GetLastError());
    });
}

BOOL WINAPI WinHttpCloseHandle(HINTERNET handle)
{
    auto* const object = static_cast<Handle*>(handle);
    if (!IsOpen(object))
        return Fail(ERROR_INVALID_HANDLE);
    object->kind = Kind::closed;
    object->DropReference();
    return TRUE;
}
