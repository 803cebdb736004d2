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

// How the settings of the other kind of programs (32 or 64 bits) differ in KeyVault; empty if they don't, or if there
// is no other kind.
std::string OtherViewDifference();

}  // namespace kelvaroctl
