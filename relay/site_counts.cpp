#include "relay/site_counts.h"

#include <algorithm>

namespace relay {

namespace {

constexpr Milliseconds kGoodLive = bs::kCountsGoodSeconds * Milliseconds{1000};
constexpr Milliseconds kGoodKept = 30000;  // a device that lives says its counts again before this is over

constexpr uint8_t Bit(size_t direction) { return static_cast<uint8_t>(1U << direction); }

}  // namespace

void SiteCounts::Show(const std::array<std::vector<std::string>, kDirections>& shows) {
  zones_.clear();
  for (size_t direction = 0; direction < kDirections; ++direction) {
    for (const std::string& zone : shows[direction]) zones_[zone] |= Bit(direction);
    missing_[direction].clear();
  }
  ++missing_version_;
  sums_ = {};
  for (auto source = sources_.begin(); source != sources_.end();) {
    uint8_t directions = 0;
    const uint8_t wanted = DirectionsOf(source->second.zone);
    for (size_t direction = 0; direction < kDirections; ++direction) {
      if ((wanted & Bit(direction)) != 0 && sums_[direction].devices < kMaxDevices) directions |= Bit(direction);
    }
    source->second.directions = directions;
    Count(source->second);
    source = directions == 0 ? sources_.erase(source) : std::next(source);
  }
}

std::set<std::string> SiteCounts::Zones() const {
  std::set<std::string> zones;
  for (const auto& [zone, directions] : zones_) zones.insert(zone);
  return zones;
}

bool SiteCounts::Hear(std::string_view device, std::string_view zone, const Counts& counts, bool kept,
                      Milliseconds now) {
  const uint8_t wanted = DirectionsOf(zone);
  const std::string name(device);
  const auto known = sources_.find(name);
  if (known == sources_.end() && wanted == 0) return true;  // on its way while the subscription ended
  if (known != sources_.end() && kept && known->second.live_on == connection_) return true;

  const Source before = known != sources_.end() ? known->second : Source();
  Discount(before);
  Source source = before;
  source.zone = zone;
  source.counts = counts;
  source.directions = 0;
  bool fits = true;
  for (size_t direction = 0; direction < kDirections; ++direction) {
    if ((wanted & Bit(direction)) == 0) continue;
    if (sums_[direction].devices < kMaxDevices) {
      source.directions |= Bit(direction);
    } else {
      fits = false;
    }
  }
  if (!kept) source.live_on = connection_;
  source.good_until = std::max(source.good_until, now + (kept ? kGoodKept : kGoodLive));
  if (source.directions == 0) {
    if (known != sources_.end()) sources_.erase(known);
    return fits;
  }
  Count(source);
  next_aging_ = std::min(next_aging_, source.good_until);
  NoLongerMissing(name);
  sources_[name] = std::move(source);
  return fits;
}

void SiteCounts::Clear(std::string_view device, std::string_view zone) {
  const std::string name(device);
  const auto known = sources_.find(name);
  if (known != sources_.end()) {
    if (known->second.zone != zone) return;
    Discount(known->second);
    sources_.erase(known);
    return;
  }
  // Whoever says that it has gone is not missed.
  for (auto& missing : missing_) {
    const auto silent = missing.find(name);
    if (silent == missing.end() || silent->second != zone) continue;
    missing.erase(silent);
    ++missing_version_;
  }
}

void SiteCounts::Age(Milliseconds now) {
  if (now < next_aging_) return;
  next_aging_ = kNever;
  for (auto source = sources_.begin(); source != sources_.end();) {
    if (now < source->second.good_until) {
      next_aging_ = std::min(next_aging_, source->second.good_until);
      ++source;
      continue;
    }
    Discount(source->second);
    for (size_t direction = 0; direction < kDirections; ++direction) {
      auto& missing = missing_[direction];
      if ((source->second.directions & Bit(direction)) == 0 || missing.size() >= kMaxDevices) continue;
      missing[source->first] = source->second.zone;
      ++missing_version_;
    }
    source = sources_.erase(source);
  }
}

std::vector<std::string> SiteCounts::MissingNames(size_t direction) const {
  std::vector<std::string> names;
  for (const auto& [device, zone] : missing_[direction]) {
    if (names.size() == kMissingNamed) break;
    names.push_back(device);
  }
  return names;
}

uint8_t SiteCounts::DirectionsOf(std::string_view zone) const {
  uint8_t directions = 0;
  for (size_t end = zone.find('/'); !zones_.empty(); end = zone.find('/', end + 1)) {
    const auto shown = zones_.find(std::string(zone.substr(0, end)));
    if (shown != zones_.end()) directions |= shown->second;
    if (end == std::string_view::npos) break;
  }
  return directions;
}

void SiteCounts::Count(const Source& source) {
  for (size_t direction = 0; direction < kDirections; ++direction) {
    if ((source.directions & Bit(direction)) == 0) continue;
    Sums& sums = sums_[direction];
    ++sums.devices;
    sums.spaces += source.counts.spaces;
    sums.free += source.counts.free;
  }
}

void SiteCounts::Discount(const Source& source) {
  for (size_t direction = 0; direction < kDirections; ++direction) {
    if ((source.directions & Bit(direction)) == 0) continue;
    Sums& sums = sums_[direction];
    --sums.devices;
    sums.spaces -= source.counts.spaces;
    sums.free -= source.counts.free;
  }
}

void SiteCounts::NoLongerMissing(const std::string& device) {
  for (auto& missing : missing_) {
    if (!missing.empty() && missing.erase(device) > 0) ++missing_version_;
  }
}

}  // namespace relay
