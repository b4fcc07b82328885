// Medians and ratios of interleaved measurements.
#pragma once

#include <vector>

namespace bench {

// The sample below which this share of all samples lies; 0 without samples.
double Quantile(std::vector<double> samples, double share);
double Median(const std::vector<double>& samples);

// What was measured of one thing: all samples, and the median of each round. Rounds of things that are compared are
// interleaved, so their medians by round saw the same state of the machine.
struct Series {
  std::vector<double> samples;
  std::vector<double> round_medians;

  void AddRound(const std::vector<double>& round);
};

// The median of what each round's median is in terms of the same round's median of the other.
double Ratio(const Series& series, const Series& floor);

}  // namespace bench
