#include "bench/statistics.h"

#include <algorithm>
#include <cmath>

namespace bench {

double Percentile(std::vector<double> samples, double share)
{
    std::sort(samples.begin(), samples.end());
    const auto rank = static_cast<size_t>(std::ceil(share * static_cast<double>(samples.size())));
    return samples.at(rank ? rank - 1 : 0);
}

double Median(std::vector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    const size_t middle = samples.size() / 2;
    return samples.size() % 2 ? samples.at(middle) : (samples.at(middle - 1) + samples.at(middle)) / 2;
}

}  // namespace bench
