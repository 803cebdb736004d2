#include "kelvaroctl/failure.h"
#include "kelvaroctl/road.h"

namespace kelvaroctl {

std::unique_ptr<Road> OpenRouter()
{
    throw UsageFailure("--via ncrypt goes through the key storage router of Windows, and needs Windows");
}

}  // namespace kelvaroctl
