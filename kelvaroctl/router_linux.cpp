#include "kelvaroctl/failure.h"
#include "kelvaroctl/module_host.h"

namespace kelvaroctl {

ProviderBinding OpenRouter()
{
    throw UsageFailure("--via ncrypt uses the key storage router of Windows, and needs Windows");
}

}  // namespace kelvaroctl
