#include "years/promises.h"

#include <algorithm>
#include <cstdlib>

#include "protocol/frame_info.h"
#include "protocol/json_text.h"
#include "protocol/site_names.h"
#include "protocol/stored_documents.h"

namespace years {
namespace {

namespace bs = businessserver;

constexpr unsigned kSpaces = 3;
constexpr size_t kMostBroken = 5;
// A count is good for 70 s, and a second or two on its way through two relays and a daemon that is at a display.
constexpr Micros kWindow = 75 * kSecond;
// A daemon whose relay is gone drops what it was told after 70 to 140 s; a hub's kept count is up to 90 s old when a
// relay takes it, and good for 30 s more.
constexpr Micros kExcusedWindow = 300 * kSecond;

// Goes through the styled text of a frame_changed, which holds numbers only and names them in this order.
class NumberReader {
 public:
  explicit NumberReader(std::string_view text) : rest_(text) {}

  bool Seek(std::string_view mark) {
    const size_t found = rest_.find(mark);
    if (found == std::string_view::npos) return false;
    rest_.remove_prefix(found + mark.size());
    return true;
  }
  uint64_t Number(std::string_view name) {
    if (!Seek(name)) return 0;
    Seek(":");
    return strtoull(rest_.data(), nullptr, 10);
  }
  bool ComesBefore(std::string_view first, std::string_view second) const {
    return rest_.find(first) < rest_.find(second);
  }

 private:
  std::string_view rest_;
};

bool IsWithinAny(const std::string& zone, const std::vector<std::string>& zones) {
  return !zone.empty() &&
         std::any_of(zones.begin(), zones.end(), [&](const std::string& outer) { return bs::IsWithin(zone, outer); });
}

}  // namespace

void Promises::Break(unsigned device, const std::string& what) {
  if (broken_.size() < kMostBroken)
    broken_.push_back({schedule_.now(), "device " + std::to_string(device) + ": " + what});
}

void Promises::Note(unsigned device, unsigned free, bool knows, const std::string& zone) {
  std::deque<Sight>& sights = devices_[device].sights;
  if (!sights.empty() && sights.back().free == free && sights.back().knows == knows && sights.back().zone == zone)
    return;
  while (sights.size() > 1 && sights[1].since + kExcusedWindow < schedule_.now()) sights.pop_front();
  sights.push_back({schedule_.now(), free, knows, zone});
}

void Promises::DeviceSees(unsigned device, unsigned free) {
  const std::deque<Sight>& sights = devices_[device].sights;
  Note(device, free, true, sights.empty() ? "" : sights.back().zone);
}

void Promises::DeviceIsPlanned(unsigned device, const std::string& zone) { devices_[device].planned = zone; }

void Promises::DeviceSaysZone(unsigned device, const std::string& zone) {
  const std::deque<Sight>& sights = devices_[device].sights;
  Note(device, sights.empty() ? 0 : sights.back().free, !sights.empty() && sights.back().knows, zone);
}

void Promises::DeviceShows(unsigned device, const ShownZones& zones) {
  Known& known = devices_[device];
  if (known.shows == zones) return;
  known.shows = zones;
  known.plan_changed = schedule_.now();
}

void Promises::Excuse(unsigned device, Micros until) {
  Known& known = devices_[device];
  known.excused_until = std::max(known.excused_until, until + kExcusedWindow);
}

// What could be counted at most: of each device in the zones the most that was free at any instant of the window.
Promises::Sum Promises::Most(unsigned device, size_t direction, Micros window) {
  const std::vector<std::string>& zones = devices_[device].shows[direction];
  const Micros begin = schedule_.now() > window ? schedule_.now() - window : 0;
  Sum most;
  for (const auto& [other, known] : devices_) {
    if (other == device) continue;
    bool counts = false;
    unsigned free = 0;
    for (size_t i = 0; i < known.sights.size(); ++i) {
      const bool over = i + 1 < known.sights.size() && known.sights[i + 1].since < begin;
      if (over || !known.sights[i].knows || !IsWithinAny(known.sights[i].zone, zones)) continue;
      counts = true;
      free = std::max(free, known.sights[i].free);
    }
    most.spaces += counts ? kSpaces : 0;
    most.free += free;
  }
  return most;
}

Promises::Sum Promises::Truth(unsigned device, size_t direction) {
  Sum sum;
  for (const auto& [other, known] : devices_) {
    if (other == device || known.sights.empty() || !known.sights.back().knows) continue;
    if (!IsWithinAny(known.planned, devices_[device].shows[direction])) continue;
    sum.spaces += kSpaces;
    sum.free += known.sights.back().free;
  }
  return sum;
}

void Promises::Displayed(unsigned device, std::string_view frame_changed) {
  NumberReader reader(frame_changed);
  if (!reader.Seek("\"frame_changed\"") && !reader.Seek("\"body\"")) return;
  reader = NumberReader(frame_changed);
  std::array<Sum, kShownDirections> shown;
  reader.Seek("\"cm_dev\"");
  while (reader.ComesBefore("\"fn\"", "\"free\"")) {
    const uint64_t free = reader.Number("\"fn\"");
    const uint64_t address = reader.Number("\"ip\"");
    const uint64_t spaces = reader.Number("\"tn\"");
    if (address >= 1 && address <= shown.size()) shown[address - 1] = {spaces, free};
  }
  Known& known = devices_[device];
  known.shown = shown;
  known.all.free = reader.Number("\"free\"");
  known.all.spaces = reader.Number("\"totle\"");
  const bool excused = schedule_.now() < known.excused_until;
  for (size_t direction = 0; direction < shown.size(); ++direction) {
    ++checks_;
    if (shown[direction].spaces == 0 && shown[direction].free == 0) continue;
    if (schedule_.now() < known.plan_changed + kExcusedWindow) continue;
    const Sum most = Most(device, direction, excused ? kExcusedWindow : kWindow);
    if (shown[direction].spaces > most.spaces || shown[direction].free > most.free) {
      Break(device, std::string("shows ") + bs::kDirectionNames[direction] + " " +
                        std::to_string(shown[direction].free) + " free of " + std::to_string(shown[direction].spaces) +
                        ", at most " + std::to_string(most.free) + " of " + std::to_string(most.spaces) +
                        " were there lately");
    }
  }
}

void Promises::CheckDisplays() {
  for (const auto& [device, known] : devices_) {
    Sum all;
    if (!known.sights.empty() && known.sights.back().knows) all = {kSpaces, known.sights.back().free};
    for (size_t direction = 0; direction < kShownDirections; ++direction) {
      ++checks_;
      const Sum truth = Truth(device, direction);
      const Sum& shown = known.shown[direction];
      all.spaces += truth.spaces;
      all.free += truth.free;
      if (shown.spaces == truth.spaces && shown.free == truth.free) continue;
      Break(device, std::string("after the faults it shows ") + bs::kDirectionNames[direction] + " " +
                        std::to_string(shown.free) + " free of " + std::to_string(shown.spaces) + ", true are " +
                        std::to_string(truth.free) + " of " + std::to_string(truth.spaces));
    }
    if (known.all.spaces != all.spaces || known.all.free != all.free) {
      Break(device, "after the faults its sums are " + std::to_string(known.all.free) + " free of " +
                        std::to_string(known.all.spaces) + ", true are " + std::to_string(all.free) + " of " +
                        std::to_string(all.spaces));
    }
  }
}

// Nobody but the daemon writes here, and what its owner set is never one of the texts that it makes itself.
void Promises::DocumentReplaced(unsigned device, const std::string& key, const std::string& before,
                                const std::string& after) {
  ++checks_;
  if (before == after) return;
  Json::Value readable;
  if (!bs::ParseJson(before, readable)) return;
  for (int index = 0; index < bs::kDefaultDocuments; ++index) {
    const std::string_view text = bs::DefaultDocument(index);
    if (std::string_view(after) != std::string_view(text.data(), text.size() + 1)) continue;
    Break(device, "replaced its owner's " + std::string(key.c_str()) + " by the default");
    return;
  }
}

}  // namespace years
