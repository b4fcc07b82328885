#include "years/history.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "years/chance.h"

namespace years {
namespace {

constexpr uint64_t kFaultStream = 0xFA017;
constexpr unsigned kFaultsPerDeviceAndDay = 24;

struct Kind {
  FaultKind kind;
  const char* name;
  unsigned weight;
  Micros shortest, longest;
};
// clang-format off
constexpr Kind kKinds[] = {
    {FaultKind::kDaemonKilled,       "daemon killed",             10, 50 * kMillisecond,  5 * kMinute},
    {FaultKind::kDaemonKilledAtCall, "daemon killed at a call",   20, 50 * kMillisecond,  10 * kSecond},
    {FaultKind::kRelayKilled,        "relay killed",              10, 50 * kMillisecond,  5 * kMinute},
    {FaultKind::kRelayStopped,       "relay stopped",              3, 1 * kSecond,        1 * kMinute},
    {FaultKind::kBusKilled,          "bus killed",                10, 100 * kMillisecond, 2 * kMinute},
    {FaultKind::kStoreAway,          "store away",                10, 10 * kMillisecond,  2 * kMinute},
    {FaultKind::kStoreLosesCall,     "store loses a call",        10, 0,                  0},
    {FaultKind::kLineStuck,          "line takes no bytes",        5, 10 * kMillisecond,  8 * kSecond},
    {FaultKind::kModuleSilent,       "beacon module silent",       5, 1 * kSecond,        5 * kMinute},
    {FaultKind::kModuleSlow,         "beacon module slow",         5, 1 * kSecond,        5 * kMinute},
    {FaultKind::kLineNoise,          "noise on the line",         10, 0,                  2 * kSecond},
    {FaultKind::kClockJumps,         "clock jumps",                5, 0,                  0},
    {FaultKind::kHubKilled,          "hub killed",                 4, 100 * kMillisecond, 3 * kMinute},
    {FaultKind::kHubForgets,         "hub killed, kept nothing",   2, 100 * kMillisecond, 3 * kMinute},
    {FaultKind::kCableOut,           "cable out",                 15, 100 * kMillisecond, 4 * kMinute},
    {FaultKind::kPlanMoves,          "plan moves the device",      8, 0,                  0},
    {FaultKind::kPlanUnreadable,     "plan unreadable",            3, 1 * kSecond,        2 * kMinute},
    {FaultKind::kPlanCleared,        "plan cleared",               3, 1 * kSecond,        2 * kMinute},
    {FaultKind::kNonsenseOnBus,      "nonsense on the bus",       10, 0,                  0},
    {FaultKind::kNonsenseOnHub,      "nonsense on the hub",       10, 0,                  0},
    {FaultKind::kImplausiblePush,    "implausible push",           1, 0,                  0},
};
// clang-format on
static_assert(std::size(kKinds) == kFaultKinds);

const Kind& Draw(Random& random) {
  unsigned all = 0;
  for (const Kind& kind : kKinds) all += kind.weight;
  uint64_t drawn = random.Below(all);
  const Kind* kind = kKinds;
  while (drawn >= kind->weight) drawn -= (kind++)->weight;
  return *kind;
}

}  // namespace

const char* NameOf(FaultKind kind) {
  const auto found =
      std::find_if(std::begin(kKinds), std::end(kKinds), [&](const Kind& row) { return row.kind == kind; });
  return found->name;
}

std::vector<Fault> FaultsOfDay(uint64_t seed, uint64_t day, unsigned devices) {
  Random random(seed ^ kFaultStream, day);
  std::vector<Fault> faults;
  for (unsigned i = 0; i < kFaultsPerDeviceAndDay * devices; ++i) {
    const Kind& kind = Draw(random);
    Fault fault = {day * kDay, kind.kind, static_cast<unsigned>(random.Below(devices)), 0, 0};
    // Short ones are as frequent as long ones.
    const Micros longest = kind.longest == 0 ? 0 : kind.longest >> random.Below(8);
    fault.lasts = longest <= kind.shortest ? kind.shortest : random.Between(kind.shortest, longest);
    fault.at += random.Below(kDay - kQuiet - kind.longest);
    fault.detail = random.Next();
    faults.push_back(fault);
  }
  std::stable_sort(faults.begin(), faults.end(), [](const Fault& a, const Fault& b) { return a.at < b.at; });
  return faults;
}

std::string TimeText(Micros at) {
  char text[64];
  const Micros of_day = at % kDay;
  const auto number = [](Micros value) { return static_cast<unsigned>(value); };
  snprintf(text, sizeof text, "day %u %02u:%02u:%02u.%03u", number(at / kDay), number(of_day / kMinute / 60),
           number(of_day / kMinute % 60), number(of_day / kSecond % 60), number(of_day / kMillisecond % 1000));
  return text;
}

std::string Text(const Fault& fault) {
  char text[128];
  snprintf(text, sizeof text, "  device %u: %s, %u.%03u s (%016llx)", fault.device, NameOf(fault.kind),
           static_cast<unsigned>(fault.lasts / kSecond), static_cast<unsigned>(fault.lasts / kMillisecond % 1000),
           static_cast<unsigned long long>(fault.detail));
  return TimeText(fault.at) + text;
}

}  // namespace years
