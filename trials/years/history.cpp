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
  unsigned weight;
  const char* name;
  Micros shortest, longest;
};
// clang-format off
constexpr Kind kKinds[] = {
    {FaultKind::kDaemonKilled,          10, "daemon killed",             50 * kMillisecond,  5 * kMinute},
    {FaultKind::kDaemonKilledAtCall,    20, "daemon killed at a call",   50 * kMillisecond,  10 * kSecond},
    {FaultKind::kRelayKilled,           10, "relay killed",              50 * kMillisecond,  5 * kMinute},
    {FaultKind::kRelayStopped,           3, "relay stopped",             1 * kSecond,        1 * kMinute},
    {FaultKind::kBusKilled,             10, "bus killed",                100 * kMillisecond, 2 * kMinute},
    {FaultKind::kStoreAway,             10, "store away",                10 * kMillisecond,  2 * kMinute},
    {FaultKind::kStoreLosesCall,        10, "store loses a call",        0,                  0},
    {FaultKind::kLineStuck,              5, "line takes no bytes",       10 * kMillisecond,  8 * kSecond},
    {FaultKind::kModuleSilent,           5, "beacon module silent",      1 * kSecond,        5 * kMinute},
    {FaultKind::kModuleSlow,             5, "beacon module slow",        1 * kSecond,        5 * kMinute},
    {FaultKind::kLineNoise,             10, "noise on the line",         0,                  2 * kSecond},
    {FaultKind::kClockJumps,             5, "clock jumps",               0,                  0},
    {FaultKind::kHubKilled,              4, "hub killed",                100 * kMillisecond, 3 * kMinute},
    {FaultKind::kHubForgets,             2, "hub killed, kept nothing",  100 * kMillisecond, 3 * kMinute},
    {FaultKind::kCableOut,              15, "cable out",                 100 * kMillisecond, 4 * kMinute},
    {FaultKind::kPlanMoves,              8, "plan moves the device",     0,                  0},
    {FaultKind::kPlanUnreadable,         3, "plan unreadable",           1 * kSecond,        2 * kMinute},
    {FaultKind::kPlanCleared,            3, "plan cleared",              1 * kSecond,        2 * kMinute},
    {FaultKind::kNonsenseOnBus,         10, "nonsense on the bus",       0,                  0},
    {FaultKind::kNonsenseOnHub,         10, "nonsense on the hub",       0,                  0},
    {FaultKind::kImplausiblePush,        1, "implausible push",          0,                  0},
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
