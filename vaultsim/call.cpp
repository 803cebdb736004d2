#include "vaultsim/call.h"

#include <algorithm>

#include "vaultsim/text.h"

namespace vaultsim {

namespace {

std::string_view Trim(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

std::string_view NameOf(std::string_view line)
{
    return line.substr(0, line.find(':'));
}

bool SplitRequestLine(Call& call)
{
    const std::vector<std::string> parts = Split(call.requestLine, ' ');
    if (parts.size() != 3 || parts[0].empty() || parts[1].empty() || parts[2] != "HTTP/1.1")
        return false;
    // A client that uses this as its proxy sends an absolute URL.
    if (parts[1][0] != '/' && parts[0] != "CONNECT")
        return false;
    call.method = parts[0];
    call.target = parts[1];
    return true;
}

void SplitTarget(Call& call)
{
    const size_t mark = call.target.find('?');
    const std::string path = call.target.substr(1, mark == std::string::npos ? mark : mark - 1);
    for (const std::string& segment : Split(path, '/'))
        call.segments.push_back(PercentDecode(segment, false));
    if (mark != std::string::npos)
        call.query = ParseForm(std::string_view(call.target).substr(mark + 1));
}

const char* Reason(int status)
{
    static const std::map<int, const char*> kReasons = {
        {200, "OK"},
        {201, "Created"},
        {202, "Accepted"},
        {204, "No Content"},
        {400, "Bad Request"},
        {401, "Unauthorized"},
        {403, "Forbidden"},
        {404, "Not Found"},
        {405, "Method Not Allowed"},
        {409, "Conflict"},
        {410, "Gone"},
        {411, "Length Required"},
        {429, "Too Many Requests"},
        {500, "Internal Server Error"},
        {503, "Service Unavailable"},
    };
    const auto found = kReasons.find(status);
    return found == kReasons.end() ? "Status" : found->second;
}

}  // namespace

std::optional<std::string> HeaderValue(const std::vector<std::string>& lines, std::string_view name)
{
    for (const std::string& line : lines) {
        const size_t colon = line.find(':');
        if (colon != std::string::npos && EqualsNoCase(NameOf(line), name))
            return std::string(Trim(std::string_view(line).substr(colon + 1)));
    }
    return std::nullopt;
}

std::optional<std::string> Call::Header(std::string_view name) const
{
    return HeaderValue(headerLines, name);
}

std::optional<std::string> Call::Query(const std::string& name) const
{
    const auto found = query.find(name);
    return found == query.end() ? std::nullopt : std::optional(found->second);
}

std::optional<Call> ParseHead(std::string_view head)
{
    Call call;
    for (size_t start = 0; start <= head.size();) {
        size_t end = head.find("\r\n", start);
        if (end == std::string_view::npos)
            end = head.size();
        const std::string line(head.substr(start, end - start));
        if (start == 0)
            call.requestLine = line;
        else
            call.headerLines.push_back(line);
        start = end + 2;
    }
    const auto nameless = [](const std::string& line) {
        const std::string_view name = NameOf(line);
        return name.empty() || name.size() == line.size() || name.find_first_of(" \t") != std::string_view::npos;
    };
    if (!SplitRequestLine(call) || std::any_of(call.headerLines.begin(), call.headerLines.end(), nameless))
        return std::nullopt;
    const std::optional<std::string> host = call.Header("Host");
    if (!host)
        return std::nullopt;
    call.host = Lower(host->substr(0, host->find(':')));
    SplitTarget(call);
    return call;
}

void SetHeader(Answer& answer, const std::string& line)
{
    std::vector<std::string>& lines = answer.headerLines;
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [&](const std::string& other) { return EqualsNoCase(NameOf(other), NameOf(line)); }),
                lines.end());
    lines.push_back(line);
}

std::string FormatHead(const Answer& answer, bool close)
{
    std::string head = "HTTP/1.1 " + std::to_string(answer.status) + " " + Reason(answer.status) + "\r\n";
    for (const std::string& line : answer.headerLines)
        head += line + "\r\n";
    // A 204 has no body and therefore no length.
    if (answer.status != 204 && !HeaderValue(answer.headerLines, "Content-Length"))
        head += "Content-Length: " + std::to_string(answer.body.size()) + "\r\n";
    if (close)
        head += "Connection: close\r\n";
    return head + "\r\n";
}

}  // namespace vaultsim
