#include "years/site.h"

#include <malloc.h>

#include <cstdio>
#include <memory>
#include <string>

#include "protocol/site_names.h"
#include "years/device.h"
#include "years/requests.h"

namespace years {
namespace {

namespace bs = businessserver;

// What a run may hold beyond what it held after its first day, for each device: its daemon's start leaves a frame
// builder behind, as the process would take it along.
constexpr size_t kGrowthPerDevice = 256 * 1024;
constexpr size_t kLeftByAStart = 2048;

size_t BytesInUse() { return mallinfo2().uordblks; }

// Every third device shows others; the first stands at the entrance.
class Plans {
 public:
  Plans(World& world, unsigned devices) : world_(world), moved_(devices) {}

  void PublishAll() {
    for (unsigned device = 0; device < moved_.size(); ++device) Publish(device);
  }
  void Move(unsigned device) {
    moved_[device] = !moved_[device];
    Publish(device);
  }
  void Publish(unsigned device) {
    const std::string zone = ZoneOf(device);
    ShownZones shows;
    if (device == 0) {
      shows[bs::kLeft] = {"L1"};
      shows[bs::kFront] = {"L2"};
    } else if (device % 3 == 0) {
      shows[bs::kRight] = {"L1/A"};
      shows[bs::kOwnGroup] = {"L2/A", "L2/B"};
    }
    world_.promises.DeviceIsPlanned(device, zone);
    world_.promises.DeviceShows(device, shows);
    std::string lists;
    for (size_t direction = 0; direction < shows.size(); ++direction) {
      std::string zones;
      for (const std::string& shown : shows[direction]) zones += (zones.empty() ? "\"" : ", \"") + shown + "\"";
      lists += (lists.empty() ? "\"" : ", \"") + std::string(bs::kDirectionNames[direction]) + "\": [" + zones + "]";
    }
    Publish(device, "{\"zone\": \"" + zone + "\", \"shows\": {" + lists + "}}");
  }
  void Publish(unsigned device, const std::string& text) {
    world_.hub.PublishKept(bs::PlanTopic(kSiteName, DeviceName(device)), text);
  }
  void Clear(unsigned device) {
    world_.promises.DeviceIsPlanned(device, "");
    world_.promises.DeviceShows(device, {});
    Publish(device, "");
  }

 private:
  std::string ZoneOf(unsigned device) const {
    const unsigned place = device + (moved_[device] ? 1 : 0);
    return "L" + std::to_string(1 + place % 2) + "/" + (place / 2 % 2 == 0 ? "A" : "B");
  }

  World& world_;
  std::vector<bool> moved_;
};

class Site {
 public:
  explicit Site(const History& history) : history_(history), world_(history.seed), plans_(world_, history.devices) {
    world_.wall_start = history.wall_start;
    world_.schedule.RunUntil(history.first_day * kDay);
    for (unsigned i = 0; i < history.devices; ++i) {
      devices_.push_back(std::make_unique<Device>(world_, i, DeviceName(i)));
      devices_.back()->JoinSite();
    }
    plans_.PublishAll();
    for (auto& device : devices_) device->PowerOn();
  }

  void PlayDay(uint64_t day, const std::vector<Fault>& faults) {
    for (auto& device : devices_) device->BeginDay(day);
    for (const Fault& fault : faults) {
      world_.schedule.At(fault.at, [this, fault] { Suffer(fault); });
    }
    world_.schedule.RunUntil(day * kDay + kDay - kMillisecond);
    world_.promises.CheckDisplays();
    CheckMemory();
  }

  World& world() { return world_; }

 private:
  void Suffer(const Fault& fault) {
    Device& device = *devices_[fault.device];
    const Micros until = world_.schedule.now() + fault.lasts;
    switch (fault.kind) {
      case FaultKind::kHubKilled:
      case FaultKind::kHubForgets:
        for (unsigned i = 0; i < devices_.size(); ++i) world_.promises.Excuse(i, until);
        world_.hub.Kill(fault.lasts, fault.kind == FaultKind::kHubForgets);
        // Whoever plans the site has the plans in a file.
        if (fault.kind == FaultKind::kHubForgets) world_.schedule.At(until, [this] { plans_.PublishAll(); });
        return;
      case FaultKind::kCableOut:
        world_.promises.Excuse(fault.device, until);
        return world_.hub.CutCable(fault.device, until);
      case FaultKind::kPlanMoves:
        return plans_.Move(fault.device);
      case FaultKind::kPlanUnreadable:
        plans_.Publish(fault.device, R"({"zone": "a//b"})");
        return world_.schedule.In(fault.lasts, [this, fault] { plans_.Publish(fault.device); });
      case FaultKind::kPlanCleared:
        plans_.Clear(fault.device);
        return world_.schedule.In(fault.lasts, [this, fault] { plans_.Publish(fault.device); });
      case FaultKind::kNonsenseOnHub: {
        Random random(fault.detail);
        const char* const branches[] = {"counts", "plan", "health", "request"};
        const std::string topic = bs::SiteTopic(kSiteName, branches[random.Below(4)], device.name());
        return world_.hub.Send({topic + (random.Chance(500) ? "/L1/A" : ""), DrawNonsense(random), false, "", ""});
      }
      default:
        return device.Suffer(fault);
    }
  }

  void CheckMemory() {
    size_t starts = 0;
    for (const auto& device : devices_) starts += device->starts();
    const size_t used = BytesInUse();
    if (memory_after_first_day_ == 0) memory_after_first_day_ = used;
    if (used > memory_after_first_day_ + devices_.size() * kGrowthPerDevice + starts * kLeftByAStart) {
      world_.promises.Break(0, "memory has grown from " + std::to_string(memory_after_first_day_) + " to " +
                                   std::to_string(used) + " bytes");
    }
  }

  const History history_;
  World world_;
  Plans plans_;
  std::vector<std::unique_ptr<Device>> devices_;
  size_t memory_after_first_day_ = 0;
};

}  // namespace

Outcome Play(const History& history, const std::function<void(const Outcome&)>& after_day) {
  const auto site = std::make_unique<Site>(history);
  const World& world = site->world();
  Outcome outcome;
  for (uint64_t day = history.first_day; day < history.first_day + history.days && world.promises.Held(); ++day) {
    const std::vector<Fault> faults =
        history.only != nullptr ? *history.only : FaultsOfDay(history.seed, day, history.devices);
    site->PlayDay(day, faults);
    ++outcome.days;
    outcome.faults += faults.size();
    outcome.checks = world.promises.checks();
    outcome.digest = world.digest.Value();
    outcome.broken = world.promises.broken();
    if (after_day) after_day(outcome);
  }
  return outcome;
}

}  // namespace years
