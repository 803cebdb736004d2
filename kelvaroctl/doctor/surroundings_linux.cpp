#include "kelvaroctl/doctor/surroundings.h"

#include <cstdlib>
#include <sstream>

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

// no_proxy: names and addresses, each of which stands for what is below it, too.
static bool IsExempt(const std::string& host)
{
    std::string list = FirstOf({"no_proxy", "NO_PROXY"});
    for (char& ch : list)
        ch = ch == ',' ? ' ' : ch;
    std::istringstream entries(list);
    for (std::string entry; entries >> entry;) {
        entry.erase(0, entry.find_first_not_of('.'));
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
    std::string proxy = secure ? FirstOf({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
                               : FirstOf({"http_proxy", "all_proxy", "ALL_PROXY"});
    if (IsExempt(host))
        return "";
    const size_t scheme = proxy.find("://");
    if (scheme != std::string::npos)
        proxy.erase(0, scheme + 3);
    proxy = proxy.substr(0, proxy.find('/'));
    const size_t user = proxy.rfind('@');
    return user == std::string::npos ? proxy : proxy.substr(user + 1);
}

std::optional<bool> IsListedWithRouter()
{
    return std::nullopt;
}

std::string EventSourceProblem(const std::string&)
{
    return "";
}

std::string RegisteredImage()
{
    return "";
}

std::string OtherViewDifference(bool)
{
    return "";
}

}  // namespace kelvaroctl
