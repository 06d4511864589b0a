#pragma once

#include <vector>

namespace e2ebench {

// Median and 99th percentile of a set of samples (nearest rank: the smallest sample that at
// least that share of the samples does not exceed).
struct SampleSummary
{
    int count = 0;
    double min = 0;
    double median = 0;
    double p99 = 0;
    double max = 0;
};

SampleSummary summarize(std::vector<double> samples);

} // namespace e2ebench
