// Composes request lines and heads as WinHTTP does, and reads response heads. Text only, no I/O.
// Functions here may throw std::bad_alloc; winhttp_calls.cpp turns it into ERROR_NOT_ENOUGH_MEMORY.
#pragma once

#include <string>
#include <string_view>

#include "platform/linux/winhttp.h"
#include "platform/secret_memory.h"

namespace winhttp {

using WideView = std::basic_string_view<WCHAR>;

// Where a request goes. host is in brackets if it is an IPv6 address; path begins with a slash.
struct Target {
    bool secure = false;
    INTERNET_PORT port = 0;
    std::string host;
    std::string path;
};

std::string UrlOf(const Target& target);
bool SameOrigin(const Target& a, const Target& b);

// False if `host` isn't a plain name or address.
bool MakeHost(WideView host, std::string* out);

// `path`, escaped for the request line.
std::string EscapePath(WideView path);

struct RequestHead {
    std::string_view callerLines;
    std::string_view agent;  // no User-Agent when empty
    bool hasContentLength = false;
    size_t contentLength = 0;
    bool withAuthorization = true;  // false drops the caller's Authorization and Cookie lines
};

// True if each line of the caller's block has a name and a colon, and none has a zero character.
bool IsHeaderBlock(std::string_view lines);

// All header lines in WinHTTP's order, separated by CR LF, without a line end after the last.
// The caller's fields replace the default ones.
// The text ends with a zero byte, included in its size.
SecretString ComposeHead(const RequestHead& head, const Target& target);

// The value of the first field `name` in a response head; empty if there is none.
std::string_view FieldValue(std::string_view head, std::string_view name);

// Resolves `location` against `from`. False if the result isn't an http or https URL.
bool ResolveLocation(const Target& from, std::string_view location, Target* to);

}  // namespace winhttp
