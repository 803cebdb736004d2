#include "kelvaroctl/doctor/web.h"

#include <cstdlib>
#include <cstring>

#include "kelvaroctl/owner.h"
#include "kelvaroctl/personal_store.h"

namespace kelvaroctl {

namespace {

constexpr size_t kMostBody = 1024 * 1024;

using Internet = Owner<void, WinHttpCloseHandle>;

// Days since 1970 of a date in the Gregorian calendar.
int64_t DaysOf(int64_t year, int64_t month, int64_t day)
{
    year -= month <= 2 ? 1 : 0;
    const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return year * 365 + year / 4 - year / 100 + year / 400 + dayOfYear - 719468;
}

void ReadCertificate(HINTERNET request, WebAnswer* answer)
{
    PCCERT_CONTEXT found = nullptr;
    DWORD size = sizeof(void*);
    if (!WinHttpQueryOption(request, WINHTTP_OPTION_SERVER_CERT_CONTEXT, &found, &size))
        return;
    const CertificateContext owner(found);
    answer->issuer = NameText(found->pCertInfo->Issuer);
    answer->expires = TimeText(UnixTime(found->pCertInfo->NotAfter));
}

void ReadHead(HINTERNET request, WebAnswer* answer)
{
    DWORD size = sizeof(answer->status);
    WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, WINHTTP_HEADER_NAME_BY_INDEX,
                        &answer->status, &size, WINHTTP_NO_HEADER_INDEX);
    std::vector<WCHAR> head(64 * 1024);
    size = static_cast<DWORD>(head.size() * sizeof(WCHAR));
    if (WinHttpQueryHeaders(request, WINHTTP_QUERY_RAW_HEADERS_CRLF, WINHTTP_HEADER_NAME_BY_INDEX, head.data(), &size,
                            WINHTTP_NO_HEADER_INDEX))
        answer->head = ToNarrow(WideView(head.data(), size / sizeof(WCHAR)));
}

DWORD ReadBody(HINTERNET request, WebAnswer* answer)
{
    DWORD available = 0;
    while (answer->body.size() < kMostBody) {
        if (!WinHttpQueryDataAvailable(request, &available))
            return GetLastError();
        if (!available)
            break;
        std::string piece(available, 0);
        DWORD read = 0;
        if (!WinHttpReadData(request, piece.data(), available, &read))
            return GetLastError();
        answer->body.append(piece, 0, read);
    }
    return 0;
}

DWORD Exchange(HINTERNET handle, const WebRequest& request, WebAnswer* answer)
{
    DWORD flags = request.ignoredCertificateErrors;
    if (flags && !WinHttpSetOption(handle, WINHTTP_OPTION_SECURITY_FLAGS, &flags, sizeof(flags)))
        return GetLastError();
    const WideText headers = ToWide(request.headers);
    const DWORD size = static_cast<DWORD>(request.body.size());
    if (!WinHttpSendRequest(handle, headers.empty() ? nullptr : headers.c_str(), static_cast<DWORD>(-1),
                            size ? const_cast<char*>(request.body.data()) : nullptr, size, size, 0))
        return GetLastError();
    ReadCertificate(handle, answer);
    if (!WinHttpReceiveResponse(handle, nullptr))
        return GetLastError();
    ReadHead(handle, answer);
    return ReadBody(handle, answer);
}

}  // namespace

WebAnswer Ask(const WebRequest& request, DWORD limitMs)
{
    WebAnswer answer;
    constexpr DWORD kReceiveResponseTimeout = 7;  // an option that not every system has
    const int limit = static_cast<int>(limitMs);
    const Internet session(WinHttpOpen(TEXT("kelvaroctl"), WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                                       WINHTTP_NO_PROXY_BYPASS, 0));
    if (session) {
        WinHttpSetTimeouts(session.get(), limit, limit, limit, limit);
        WinHttpSetOption(session.get(), kReceiveResponseTimeout, &limitMs, sizeof(limitMs));
    }
    const Internet connection(WinHttpConnect(session.get(), ToWide(request.host).c_str(), request.port, 0));
    const Internet handle(WinHttpOpenRequest(connection.get(), ToWide(request.verb).c_str(),
                                             ToWide(request.path).c_str(), nullptr, WINHTTP_NO_REFERER,
                                             WINHTTP_DEFAULT_ACCEPT_TYPES, request.secure ? WINHTTP_FLAG_SECURE : 0));
    answer.error = handle ? Exchange(handle.get(), request, &answer) : GetLastError();
    answer.json = Json::parse(answer.body, nullptr, false);
    if (answer.json.is_discarded())
        answer.json = nullptr;
    return answer;
}

std::string WebAnswer::Field(const char* name) const
{
    const size_t length = std::strlen(name);
    for (const std::string_view line : Split(head, "\r\n")) {
        if (line.size() > length && line[length] == ':' && EqualIgnoringCase(line.substr(0, length), name)) {
            const size_t begin = line.find_first_not_of(" \t", length + 1);
            return begin == std::string_view::npos ? "" : std::string(line.substr(begin));
        }
    }
    return "";
}

int64_t WebAnswer::Time() const
{
    constexpr char kMonths[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const std::string date = Field("Date");  // Sun, 06 Nov 1994 08:49:37 GMT
    if (date.size() < 25)
        return 0;
    const auto number = [&](size_t at) { return int64_t{std::strtol(date.c_str() + at, nullptr, 10)}; };
    const char* const month = std::strstr(kMonths, date.substr(8, 3).c_str());
    if (!month)
        return 0;
    const int64_t days = DaysOf(number(12), (month - kMonths) / 3 + 1, number(5));
    return days * 86400 + number(17) * 3600 + number(20) * 60 + number(23);
}

std::string WebErrorText(DWORD error)
{
    struct Row {
        LONG error;
        const char* text;
    };
    constexpr Row kRows[] = {
        {ERROR_WINHTTP_TIMEOUT, "no answer in time"},
        {ERROR_WINHTTP_NAME_NOT_RESOLVED, "the name was not found"},
        {ERROR_WINHTTP_CANNOT_CONNECT, "no connection"},
        {ERROR_WINHTTP_CONNECTION_ERROR, "the connection broke"},
        {ERROR_WINHTTP_INVALID_SERVER_RESPONSE, "what answered doesn't speak HTTP"},
        {ERROR_WINHTTP_SECURE_FAILURE, "TLS failed"},
    };
    for (const Row& row : kRows) {
        if (static_cast<DWORD>(row.error) == error)
            return std::to_string(error) + ", " + row.text;
    }
    return "error " + std::to_string(error);
}

std::string JsonText(const Json& object, const char* name)
{
    return object.is_object() && object.contains(name) && object[name].is_string() ? object[name].get<std::string>()
                                                                                   : "";
}

}  // namespace kelvaroctl
