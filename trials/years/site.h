// A whole site played from a seed: devices, hub, plans, and everything that goes wrong.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "years/history.h"
#include "years/promises.h"

namespace years {

struct History {
  uint64_t seed = 1;
  unsigned devices = 10;
  uint64_t first_day = 0;
  uint64_t days = 1;
  int64_t wall_start = 0;                    // Unix time at the beginning of day 0, s
  const std::vector<Fault>* only = nullptr;  // these instead of those that the seed draws
};

struct Outcome {
  uint64_t days = 0;  // that were played to their end
  uint64_t faults = 0;
  uint64_t checks = 0;
  uint64_t digest = 0;  // of all that left any device
  std::vector<Broken> broken;
};

// Plays until the days are over or a promise is broken; after_day, if any, is called after each with what is known.
Outcome Play(const History& history, const std::function<void(const Outcome&)>& after_day);

}  // namespace years
