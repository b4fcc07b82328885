// What must hold at every step of a played history, whatever went wrong.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "years/schedule.h"

namespace years {

constexpr size_t kShownDirections = 4;
using ShownZones = std::array<std::vector<std::string>, kShownDirections>;

// The first promise that was broken ends the history.
struct Broken {
  Micros at = 0;
  std::string what;  // a sentence
};

class Promises {
 public:
  explicit Promises(const Schedule& schedule) : schedule_(schedule) {}

  bool Held() const { return broken_.empty(); }
  const std::vector<Broken>& broken() const { return broken_; }
  void Break(unsigned device, const std::string& what);

  // ---- counts: what is true, as the devices were told it ----
  void DeviceSees(unsigned device, unsigned free);                 // a result reached its daemon
  void DeviceIsPlanned(unsigned device, const std::string& zone);  // empty for nowhere
  void DeviceSaysZone(unsigned device, const std::string& zone);   // its relay published there
  void DeviceShows(unsigned device, const ShownZones& zones);
  // Something of this device failed that lets old counts stand longer than they should on a sound one.
  void Excuse(unsigned device, Micros until);

  bool IsExcused(unsigned device) { return schedule_.now() < devices_[device].excused_until; }

  // The daemon broadcast its sums.
  void Displayed(unsigned device, std::string_view frame_changed);
  // Every display must show the truth now.
  void CheckDisplays();

  // ---- documents ----
  void DocumentReplaced(unsigned device, const std::string& key, const std::string& before, const std::string& after);

  uint64_t checks() const { return checks_; }

 private:
  struct Sum {
    uint64_t spaces = 0;
    uint64_t free = 0;
  };
  struct Sight {  // of a device, since then
    Micros since;
    unsigned free;
    bool knows;  // a result has come
    std::string zone;
  };
  struct Known {
    std::deque<Sight> sights;
    ShownZones shows;
    std::string planned;
    Micros plan_changed = 0;
    Micros excused_until = 0;
    std::array<Sum, kShownDirections> shown;  // latest
    Sum all;
  };

  void Note(unsigned device, unsigned free, bool knows, const std::string& zone);
  Sum Most(unsigned device, size_t direction, Micros window);
  Sum Truth(unsigned device, size_t direction);

  const Schedule& schedule_;
  std::map<unsigned, Known> devices_;
  std::vector<Broken> broken_;
  uint64_t checks_ = 0;
};

}  // namespace years
