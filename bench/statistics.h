// Statistics of samples.
#pragma once

#include <chrono>
#include <vector>

namespace bench {

double Median(std::vector<double> samples);
// share: 0.95 for the 95th percentile (nearest rank).
double Percentile(std::vector<double> samples, double share);

class Stopwatch {
  public:
    double Seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace bench
