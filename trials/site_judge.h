// What a display may be told at most, apart from any network: how many spaces there are in what it counts, and how many
// of them were free at some instant that still counts.
#pragma once

#include <algorithm>
#include <chrono>
#include <deque>
#include <string>
#include <utility>

namespace trials {

// How many spaces of a camera were free, and since when.
class FreeHistory {
 public:
  using Instant = std::chrono::steady_clock::time_point;

  // In the order of time. What was over before forget is left out.
  void Note(Instant now, int free, Instant forget) {
    history_.emplace_back(now, free);
    while (history_.size() > 1 && history_[1].first < forget) history_.pop_front();
  }

  // At any instant from then on. What was noted last before then held until the next.
  int Most(Instant from) const {
    int most = 0;
    for (size_t i = 0; i < history_.size(); ++i) {
      const bool over = i + 1 < history_.size() && history_[i + 1].first < from;
      if (!over) most = std::max(most, history_[i].second);
    }
    return most;
  }

 private:
  std::deque<std::pair<Instant, int>> history_;
};

struct Claim {
  int spaces = 0;
  int free = 0;
};

// What is wrong with a push; empty for nothing.
inline std::string Judge(const Claim& pushed, const Claim& most) {
  if (pushed.spaces > most.spaces) return "counts more than " + std::to_string(most.spaces);
  if (pushed.free > most.free) {
    return "counts more free than the " + std::to_string(most.free) + " of the last 70 s";
  }
  return "";
}

}  // namespace trials
