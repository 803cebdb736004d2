// One request as it came, and the answer to it.
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
    std::vector<std::string> headerLines;  // in order, without CR LF
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
    std::vector<std::string> headerLines;  // "Content-Type" among them; the length is added on the way out
};

// The value of the header line `name` among `lines`, without the blanks around it.
std::optional<std::string> HeaderValue(const std::vector<std::string>& lines, std::string_view name);

// Reads a request head, the blank line behind it not included. Nothing where it is no HTTP/1.1 request.
std::optional<Call> ParseHead(std::string_view head);

// Sets `line` in place of a header line of the same name.
void SetHeader(Answer& answer, const std::string& line);

// The answer's head as sent, the blank line included.
std::string FormatHead(const Answer& answer, bool close);

}  // namespace vaultsim
