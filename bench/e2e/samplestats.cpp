#include "samplestats.h"

#include <algorithm>
#include <cmath>

namespace e2ebench {

namespace {

double nearestRank(const std::vector<double>& sorted, double share)
{
    const auto rank = std::size_t(std::ceil(share * double(sorted.size())));
    return sorted[std::clamp<std::size_t>(rank, 1, sorted.size()) - 1];
}

} // namespace

SampleSummary summarize(std::vector<double> samples)
{
    SampleSummary summary;
    summary.count = int(samples.size());
    if (samples.empty())
        return summary;
    std::sort(samples.begin(), samples.end());
    summary.min = samples.front();
    summary.median = nearestRank(samples, 0.5);
    summary.p99 = nearestRank(samples, 0.99);
    summary.max = samples.back();
    return summary;
}

} // namespace e2ebench
