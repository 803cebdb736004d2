#include "platform/linux/winhttp_message.h"

#include <curl/curl.h>

#include <initializer_list>

#include "platform/linux/text.h"
#include "platform/linux/winhttp_curl_url.h"

namespace winhttp {
namespace {

bool EqualNoCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && curl_strnequal(a.data(), b.data(), a.size()) != 0;
}

constexpr char kInNames[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-._";
constexpr char kInAddresses[] = "0123456789abcdefABCDEF:.";

INTERNET_PORT DefaultPort(bool secure)
{
    return secure ? INTERNET_DEFAULT_HTTPS_PORT : INTERNET_DEFAULT_HTTP_PORT;
}

std::string Authority(const Target& target)
{
    std::string authority = target.host;
    if (target.port != DefaultPort(target.secure))
        authority.append(":").append(std::to_string(target.port));
    return authority;
}

std::string_view NameOf(std::string_view line)
{
    return line.substr(0, line.find(':'));
}

// Calls visit(line) for each line that is not empty, until it returns false.
template <class Visit>
bool ForEachLine(std::string_view block, Visit visit)
{
    while (!block.empty()) {
        const size_t end = block.find("\r\n");
        const std::string_view line = block.substr(0, end);
        block.remove_prefix(end == std::string_view::npos ? block.size() : end + 2);
        if (!line.empty() && !visit(line))
            return false;
    }
    return true;
}

bool HasField(std::string_view block, std::string_view name)
{
    return !ForEachLine(block, [&](std::string_view line) { return !EqualNoCase(NameOf(line), name); });
}

}  // namespace

std::string UrlOf(const Target& target)
{
    std::string url;
    url.reserve(target.host.size() + target.path.size() + 16);
    url.append(target.secure ? "https://" : "http://").append(target.host);
    return url.append(":").append(std::to_string(target.port)).append(target.path);
}

bool SameOrigin(const Target& a, const Target& b)
{
    return a.secure == b.secure && a.port == b.port && EqualNoCase(a.host, b.host);
}

bool MakeHost(WideView host, std::string* out)
{
    const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (bracketed)
        host = host.substr(1, host.size() - 2);
    if (host.empty())
        return false;
    const bool address = bracketed || host.find(u':') != WideView::npos;
    const std::string text = ToUtf8(host);
    *out = address ? "[" + text + "]" : text;
    return text.find_first_not_of(address ? kInAddresses : kInNames) == std::string::npos;
}

std::string EscapePath(WideView path)
{
    const std::string bytes = ToUtf8(path);
    std::string escaped;
    escaped.reserve(bytes.size() + 16);
    if (bytes.empty() || bytes.front() != '/')
        escaped += '/';
    for (char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        const bool keep =
            byte > 0x20 && byte < 0x7F && std::string_view("\"#<>\\^`{|}").find(c) == std::string_view::npos;
        if (keep)
            escaped += c;
        else
            escaped.append("%").append(HexOf({&c, 1}));
    }
    return escaped;
}

bool IsHeaderBlock(std::string_view lines)
{
    if (lines.find('\0') != std::string_view::npos)
        return false;
    return ForEachLine(lines, [](std::string_view line) {
        const size_t colon = line.find(':');
        return colon != std::string_view::npos && colon != 0;
    });
}

SecretString ComposeHead(const RequestHead& head, const Target& target)
{
    const std::string_view caller = head.callerLines;
    SecretString out;
    out.reserve(caller.size() + head.agent.size() + target.host.size() + 128);
    const auto addLine = [&](std::initializer_list<std::string_view> parts) {
        if (!out.empty())
            out += "\r\n";
        for (std::string_view part : parts)
            out += part;
    };
    const auto add = [&](std::string_view name, std::string_view value) {
        if (!HasField(caller, name))
            addLine({name, ": ", value});
    };
    add("Connection", "Keep-Alive");
    ForEachLine(caller, [&](std::string_view line) {
        const std::string_view name = NameOf(line);
        if (head.withAuthorization || (!EqualNoCase(name, "Authorization") && !EqualNoCase(name, "Cookie")))
            addLine({line});
        return true;
    });
    if (!head.agent.empty())
        add("User-Agent", head.agent);
    if (head.hasContentLength)
        add("Content-Length", std::to_string(head.contentLength));
    add("Host", Authority(target));
    out.push_back('\0');
    return out;
}

std::string_view FieldValue(std::string_view head, std::string_view name)
{
    std::string_view value;
    ForEachLine(head, [&](std::string_view line) {
        if (!EqualNoCase(NameOf(line), name) || line.size() == name.size())
            return true;
        value = line.substr(name.size() + 1);
        return false;
    });
    const size_t first = value.find_first_not_of(" \t");
    const size_t last = value.find_last_not_of(" \t");
    return first == std::string_view::npos ? std::string_view() : value.substr(first, last - first + 1);
}

bool ResolveLocation(const Target& from, std::string_view location, Target* to)
{
    const Url url = NewUrl();
    const std::string there(location);
    constexpr unsigned kFlags = CURLU_URLENCODE | CURLU_DISALLOW_USER | CURLU_NON_SUPPORT_SCHEME;
    if (!SetUrl(url, UrlOf(from).c_str(), CURLU_PATH_AS_IS) || !SetUrl(url, there.c_str(), kFlags))
        return false;
    const CurlText scheme = PartOf(url, CURLUPART_SCHEME, 0);
    const CurlText host = PartOf(url, CURLUPART_HOST, 0);
    const CurlText port = PartOf(url, CURLUPART_PORT, CURLU_DEFAULT_PORT);
    const CurlText path = PartOf(url, CURLUPART_PATH, 0);
    const CurlText query = PartOf(url, CURLUPART_QUERY, 0);
    if (!scheme || !host || !port || !path)
        return false;
    to->secure = EqualNoCase(scheme.get(), "https");
    if (!to->secure && !EqualNoCase(scheme.get(), "http"))
        return false;
    to->host = host.get();
    to->port = static_cast<INTERNET_PORT>(std::stoul(port.get()));
    to->path = path.get();
    if (query)
        to->path.append("?").append(query.get());
    return true;
}

}  // namespace winhttp
