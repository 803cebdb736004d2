// What surrounds the module on this system. Each system has its own source, chosen by the build.
#pragma once

#include <optional>
#include <string>

#include "platform/platform.h"

namespace kelvaroctl {

// The proxy that a request to this host goes through, "proxy.contoso.com:8080" without a user name; empty for none.
std::string ProxyFor(const std::string& host, bool secure);

// Whether the router's list has the provider; nullopt on a system without one.
std::optional<bool> IsListedWithRouter();

// Why events can't be shown under this source, or an empty text.
std::string EventSourceProblem(const std::string& source);

// The image that the router has on record for the provider; empty if there is none.
std::string RegisteredImage();

// Which settings programs of the other kind (32 or 64 bits) read differently; empty if none, or if there is no other
// kind. Secrets aren't shown.
std::string OtherViewDifference(bool machine);

}  // namespace kelvaroctl
