// A request as received, and the answer to it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vaultsim {

struct Call {
    std::string listener;  // "tls", "http" or "arc"
    std::string requestLine;
    std::string method;
    std::string target;                    // as on the request line
    std::vector<std::string> headerLines;  // in order, without CRLF
    std::string body;

    // Derived from the above.
    std::string host;                          // of the Host line, without the port
    std::vector<std::string> segments;         // of the path, decoded: "/keys/a//sign" is keys, a, "", sign
    std::map<std::string, std::string> query;  // decoded

    std::optional<std::string> Header(std::string_view name) const;
    std::optional<std::string> Query(const std::string& name) const;
};

struct Answer {
    int status = 200;
    std::string body;
    std::vector<std::string> headerLines;  // includes Content-Type; FormatHead adds the length
};

// The trimmed value of the header `name` in `lines`.
std::optional<std::string> HeaderValue(const std::vector<std::string>& lines, std::string_view name);

// Parses a request head without the blank line that ends it. Nothing if it isn't an HTTP/1.1 request.
std::optional<Call> ParseHead(std::string_view head);

// Sets a header line, replacing those of the same name.
void SetHeader(Answer& answer, const std::string& line);

// The answer's head as sent, with the blank line.
std::string FormatHead(const Answer& answer, bool close);

}  // namespace vaultsim
