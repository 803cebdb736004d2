#include "kelvaroctl/doctor/surroundings.h"

#include <algorithm>
#include <cstdlib>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

// The first that is set. A privileged program takes none from the environment, as the transport doesn't.
static std::string FirstOf(std::initializer_list<const char*> names)
{
    for (const char* name : names) {
        const char* const value = secure_getenv(name);
        if (value && *value)
            return value;
    }
    return "";
}

// no_proxy: names and addresses; a name includes those below it.
static bool IsExempt(const std::string& host)
{
    const std::string list = FirstOf({"no_proxy", "NO_PROXY"});
    for (std::string_view entry : Split(list, ", \t\r\n")) {
        entry.remove_prefix(std::min(entry.find_first_not_of('.'), entry.size()));
        const size_t at = host.size() - entry.size();
        if (entry == "*" || entry == host)
            return true;
        if (!entry.empty() && entry.size() < host.size() && host.compare(at, entry.size(), entry) == 0 &&
            host[at - 1] == '.')
            return true;
    }
    return false;
}

std::string ProxyFor(const std::string& host, bool secure)
{
    const std::string proxy = secure ? FirstOf({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
                                     : FirstOf({"http_proxy", "all_proxy", "ALL_PROXY"});
    return IsExempt(host) ? "" : proxy;
}

std::optional<std::string> RegisteredImage()
{
    return std::nullopt;
}

std::string EventSourceProblem(const std::string&)
{
    return "";
}

std::string OtherViewDifference(bool)
{
    return "";
}

}  // namespace kelvaroctl
