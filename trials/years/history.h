// What goes wrong on a site, and when: drawn from a seed, a day at a time, so that any day can be played by itself.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "years/schedule.h"

namespace years {

enum class FaultKind {
  kDaemonKilled,
  kDaemonKilledAtCall,  // its n-th call to the platform: in the midst of a set, a start, a frame
  kRelayKilled,
  kRelayStopped,  // in order
  kBusKilled,     // with all that is on its way
  kStoreAway,
  kStoreLosesCall,  // carried out or not
  kLineStuck,       // takes no bytes
  kModuleSilent,
  kModuleSlow,
  kLineNoise,  // bytes that nobody asked for
  kClockJumps,
  kHubKilled,   // and comes back with what it kept
  kHubForgets,  // and comes back without
  kCableOut,    // between device and hub
  kPlanMoves,   // the device is planned for another zone
  kPlanUnreadable,
  kPlanCleared,  // and made anew
  kNonsenseOnBus,
  kNonsenseOnHub,
  kImplausiblePush,  // somebody else's: the daemon asks to be forgotten
};
constexpr int kFaultKinds = static_cast<int>(FaultKind::kImplausiblePush) + 1;

const char* NameOf(FaultKind kind);

struct Fault {
  Micros at;  // since the beginning of day 0
  FaultKind kind;
  unsigned device;
  Micros lasts;
  uint64_t detail;  // any number: each kind makes of it what it needs
};

// Each day ends with some minutes without faults, in which everything must come right.
constexpr Micros kQuiet = 15 * kMinute;

std::vector<Fault> FaultsOfDay(uint64_t seed, uint64_t day, unsigned devices);

// "day 3 07:12:44.120"
std::string TimeText(Micros at);

// "day 3 07:12:44.120  device 4: bus killed, 3.200 s (0123456789abcdef)"
std::string Text(const Fault& fault);

}  // namespace years
