// The counts of the devices that this one shows, and their sums by direction. A device is counted once in a direction,
// with the latest that was heard of it, wherever in the site it says to be.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>

#include "relay/documents.h"

namespace relay {

using Milliseconds = uint64_t;  // of a clock that is never set
inline constexpr Milliseconds kNever = UINT64_MAX;

struct Sums {
  uint32_t devices = 0;
  uint64_t spaces = 0;
  uint64_t free = 0;
};

class SiteCounts {
 public:
  static constexpr size_t kMaxDevices = 16384;  // of a direction
  static constexpr size_t kMissingNamed = 20;

  // What each direction shows from now on. Devices that no direction shows any more are forgotten, and so is who is
  // missing.
  void Show(const std::array<std::vector<std::string>, kDirections>& shows);

  // Every zone that is shown.
  std::set<std::string> Zones() const;

  // A kept count is one that the hub held before the relay asked for it: good for a shorter time, and not taken from a
  // device that was heard live on this connection. False when a direction is full.
  bool Hear(std::string_view device, std::string_view zone, const Counts& counts, bool kept, Milliseconds now);

  // The device's counts of this zone are no more.
  void Clear(std::string_view device, std::string_view zone);

  // What was heard before counts on, but the hub's kept counts are newer.
  void OnNewConnection() { ++connection_; }

  // Drops the devices that were silent for too long.
  void Age(Milliseconds now);
  Milliseconds NextAging() const { return next_aging_; }

  const Sums& Of(size_t direction) const { return sums_[direction]; }

  // Devices that were counted and have fallen silent: the first few names, sorted, and how many there are.
  std::vector<std::string> MissingNames(size_t direction) const;
  size_t MissingCount(size_t direction) const { return missing_[direction].size(); }

  // Grows with each change of who is missing.
  uint64_t missing_version() const { return missing_version_; }

 private:
  struct Source {
    std::string zone;
    Counts counts;
    uint8_t directions = 0;  // bits
    uint32_t live_on = 0;    // connection on which it was last heard live
    Milliseconds good_until = 0;
  };

  uint8_t DirectionsOf(std::string_view zone) const;
  void Count(const Source& source);
  void Discount(const Source& source);
  void NoLongerMissing(const std::string& device);

  std::unordered_map<std::string, uint8_t> zones_;  // that are shown, with the bits of who shows them
  std::unordered_map<std::string, Source> sources_;
  std::array<Sums, kDirections> sums_;
  std::array<std::map<std::string, std::string>, kDirections> missing_;  // device, its last zone
  uint64_t missing_version_ = 0;
  uint32_t connection_ = 1;
  Milliseconds next_aging_ = kNever;
};

}  // namespace relay
