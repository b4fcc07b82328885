#include "statistics.h"

#include <algorithm>
#include <cstddef>

namespace bench {

double Quantile(std::vector<double> samples, double share) {
  if (samples.empty()) return 0;
  const auto rank = static_cast<size_t>(share * static_cast<double>(samples.size() - 1) + 0.5);
  std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(rank), samples.end());
  return samples[rank];
}

double Median(const std::vector<double>& samples) {
  if (samples.size() % 2 != 0) return Quantile(samples, 0.5);
  const double half = static_cast<double>(samples.size() / 2);
  const double all = static_cast<double>(samples.size()) - 1;
  return (Quantile(samples, (half - 1) / all) + Quantile(samples, half / all)) / 2;
}

void Series::AddRound(const std::vector<double>& round) {
  samples.insert(samples.end(), round.begin(), round.end());
  round_medians.push_back(Median(round));
}

double Ratio(const Series& series, const Series& floor) {
  std::vector<double> ratios;
  const size_t rounds = std::min(series.round_medians.size(), floor.round_medians.size());
  for (size_t i = 0; i < rounds; ++i) {
    if (floor.round_medians[i] > 0) ratios.push_back(series.round_medians[i] / floor.round_medians[i]);
  }
  return Median(ratios);
}

}  // namespace bench
