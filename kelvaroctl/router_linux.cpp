#include "kelvaroctl/failure.h"
#include "kelvaroctl/provider_binding.h"

namespace kelvaroctl {

ProviderBinding OpenRouter()
{
    throw UsageFailure("--via ncrypt uses the key storage router of Windows, and needs Windows");
}

}  // namespace kelvaroctl
