// What WinHTTP puts on the request line and into the head, and what it reads from a response head. Text only, no I/O.
// Functions here may throw std::bad_alloc; the callers of winhttp_calls.cpp turn it into ERROR_NOT_ENOUGH_MEMORY.
#pragma once

#include <string>
#include <string_view>

#include "platform/linux/winhttp.h"
#include "platform/secret_memory.h"

namespace winhttp {

using WideView = std::basic_string_view<WCHAR>;

// Where a request goes. host carries brackets when it is an IPv6 address; path begins with a slash.
struct Target {
    bool secure = false;
    INTERNET_PORT port = 0;
    std::string host;
    std::string path;
};

std::string UrlOf(const Target& target);
bool SameOrigin(const Target& a, const Target& b);

// False when `host` is no plain name or address.
bool MakeHost(WideView host, std::string* out);

// `path` as it may stand on a request line.
std::string EscapePath(WideView path);

struct RequestHead {
    std::string_view callerLines;
    std::string_view agent;  // no User-Agent when empty
    bool hasContentLength = false;
    size_t contentLength = 0;
    bool withAuthorization = true;  // false drops the caller's Authorization and Cookie lines
};

// True when each line of the caller's block has a name, a colon and no zero character.
bool IsHeaderBlock(std::string_view lines);

// All header lines in WinHTTP's order, divided by CR LF, without a line end behind the last.
// A field that the caller gives is not added a second time.
// The text ends with a zero byte, which counts.
SecretString ComposeHead(const RequestHead& head, const Target& target);

// The value of the first field `name` in a response head; empty when there is none.
std::string_view FieldValue(std::string_view head, std::string_view name);

// Where `location` leads to from `from`. False when it is no http or https URL.
bool ResolveLocation(const Target& from, std::string_view location, Target* to);

}  // namespace winhttp
