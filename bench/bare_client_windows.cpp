#include <stdexcept>

#include "bench/bare_client.h"
#include "platform/owner.h"
#include "platform/platform.h"

namespace bench {

namespace {

using Handle = Owner<void, WinHttpCloseHandle>;

Handle Checked(HINTERNET handle, const std::string& url)
{
    if (!handle)
        throw std::runtime_error(url + ": error " + std::to_string(GetLastError()));
    return Handle(handle);
}

// Reads the whole answer. Returns its status, or 0.
DWORD Receive(HINTERNET request)
{
    DWORD status = 0;
    DWORD size = sizeof(status);
    if (!WinHttpReceiveResponse(request, nullptr) ||
        !WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, nullptr, &status, &size,
                             nullptr))
        return 0;
    for (DWORD available = 1; available != 0;) {
        if (!WinHttpQueryDataAvailable(request, &available))
            return 0;
        std::string piece(available, 0);
        DWORD read = 0;
        if (available != 0 && !WinHttpReadData(request, piece.data(), available, &read))
            return 0;
    }
    return status;
}

}  // namespace

struct BareClient::State {
    Handle session;
};

BareClient::BareClient(bool) : state_(std::make_unique<State>())
{
    state_->session =
        Checked(WinHttpOpen(TEXT("bench"), WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, nullptr, nullptr, 0), "a session");
}

BareClient::~BareClient() = default;

bool BareClient::ChoosesSessions()
{
    return false;
}

void BareClient::Send(const Recorded& request)
{
    const size_t host = request.url.find("//") + 2;
    const size_t path = request.url.find('/', host);
    const Handle connection =
        Checked(WinHttpConnect(state_->session.get(), Wide(request.url.substr(host, path - host)).c_str(), 443, 0),
                request.url);
    const Handle handle = Checked(
        WinHttpOpenRequest(connection.get(), Wide(request.method).c_str(), Wide(request.url.substr(path)).c_str(),
                           nullptr, nullptr, nullptr, WINHTTP_FLAG_SECURE),
        request.url);
    std::string fields;
    for (const std::string& line : request.headers)
        fields += line + "\r\n";
    std::string body = request.body;
    const DWORD size = static_cast<DWORD>(body.size());
    DWORD status = 0;
    if (WinHttpSendRequest(handle.get(), Wide(fields).c_str(), static_cast<DWORD>(-1), body.data(), size, size, 0))
        status = Receive(handle.get());
    if (status != 200)
        throw std::runtime_error(request.url + ": status " + std::to_string(status) + ", error " +
                                 std::to_string(GetLastError()));
}

}  // namespace bench
