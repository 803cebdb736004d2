// The module's environment on this system. Each system has its own source, chosen by the build.
#pragma once

#include <optional>
#include <string>

#include "platform/platform.h"

namespace kelvaroctl {

// The proxy that a request to this host goes through, as it is configured; empty for none.
std::string ProxyFor(const std::string& host, bool secure);

// The image that the key storage router has on record for the provider, empty if there is none; nullopt on a system
// without a router.
std::optional<std::string> RegisteredImage();

// Why events can't be shown under this source, or an empty text.
std::string EventSourceProblem(const std::string& source);

// What programs of the other kind (32 or 64 bits) read, if both kinds have settings and these differ; empty if they
// don't, or on a system without separate settings. Secrets aren't shown.
std::string OtherViewDifference(bool machine);

}  // namespace kelvaroctl
