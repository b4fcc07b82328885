// What a relay says about itself and its device.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "relay/documents.h"
#include "relay/site_counts.h"

namespace relay {

enum class DaemonState { kOk, kSilent, kImplausible };
enum class PlanState { kOk, kNone, kUnreadable };

// What is said at once when it changes.
struct HealthState {
  DaemonState daemon = DaemonState::kOk;
  PlanState plan = PlanState::kNone;
  bool counts_known = false;
  std::array<bool, kDirections> shows = {};
  uint64_t missing_version = 0;
  uint64_t rejected = 0;
  bool duplicate = false;
};
bool operator==(const HealthState& a, const HealthState& b);

struct Health {
  std::string run;
  std::string version;
  int64_t since = 0;  // Unix time, s
  HealthState state;
  Counts own;  // where they are known
  struct Direction {
    Sums sums;
    std::vector<std::string> missing;
    size_t missing_count = 0;
  };
  std::array<Direction, kDirections> directions;  // of those that are shown
};
std::string HealthText(const Health& health);

inline constexpr char kOfflineText[] = "{\"online\": false}";

}  // namespace relay
