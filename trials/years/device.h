// One played device: daemon, relay, bus, store, lines, beacon module, the recognition process and a front end that
// asks.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "desk/beacon_module.h"
#include "memory_board/memory_board.h"
#include "relay/relay.h"
#include "years/chance.h"
#include "years/daemon.h"
#include "years/history.h"
#include "years/hub.h"
#include "years/promises.h"
#include "years/store.h"

namespace years {

constexpr unsigned kSpacesOfDevice = 3;
constexpr Micros kBusRetry = kSecond;
constexpr char kSiteName[] = "years";

inline std::string DeviceName(unsigned number) { return "camera-" + std::to_string(number); }

// What all devices of a site share.
struct World {
  explicit World(uint64_t seed) : seed(seed), hub(schedule, digest), promises(schedule) {}

  const uint64_t seed;
  Schedule schedule;
  Digest digest;
  Hub hub;
  Promises promises;
  int64_t wall_start = 0;  // Unix time at the beginning of day 0, s
};

class Device : public memory_board::MemoryBoard {
 public:
  Device(World& world, unsigned number, std::string name);
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // Puts the relay's document into the store.
  void JoinSite();
  void PowerOn();
  uint64_t starts() const { return starts_; }  // of its daemon
  // What the recognition process and people do on a day: from streams of the day's own.
  void BeginDay(uint64_t day);
  void Suffer(const Fault& fault);

  const std::string& name() const { return name_; }
  unsigned number() const { return number_; }

  // ---- for the platform that the daemon calls ----
  Store store;
  std::function<void()> line_poll;  // looks for input on the external line
  Micros Now() const override { return daemon_.now(); }
  void PassUntil(Micros when) override { daemon_.SleepUntil(when); }
  time_t WallClock() const override;
  void OnWrite(int line, std::string_view bytes) override;
  void Logged(const std::string& text);
  void RanInShell(const std::string& command_line);
  bool ConnectDaemon();
  void PublishedByDaemon(const std::string& type, const std::string& data, Micros when);
  void Replied(uint32_t id, const std::string& data, Micros when);

 private:
  // A request, or a message that wants no answer (id 0).
  void SendToDaemon(const std::string& type, const std::string& data, uint32_t id, Micros when);
  void KillBus(Micros lasts);
  void TellBusIsDown();
  void StartDaemon();
  void DaemonEnded(bool killed);
  void Input(int line, const std::string& bytes, Micros when);
  void HeardByModule(std::string_view bytes, Micros when);
  void AskSomething(Random& random);
  void Recognise();
  void CheckWatchdog();

  // ---- device_relay.cpp ----
  void AskFromAfar(Random& random);
  void StartRelay();
  void EndRelay(bool in_order, Micros rests);
  void RelayTurn(const std::function<void(relay::Milliseconds now)>& input);
  void DoForRelay(const relay::Output& output);
  void WakeRelay();
  void ConnectRelayToBus();

  struct Asked {
    std::string type;
    Micros at;
    uint64_t daemon_life, bus_life;
    bool delivered;
    unsigned replies;
    std::optional<uint64_t> for_relay;
  };

  World& world_;
  const unsigned number_;
  const std::string name_;
  Daemon daemon_;
  uint64_t starts_ = 0;
  int64_t clock_offset_ = 0;  // s

  struct {
    bool up = true;
    bool daemon_connected = false;
    uint64_t life = 1;
  } bus_;
  uint32_t last_request_ = 0;
  std::map<uint32_t, Asked> asked_;

  desk::BeaconState module_;
  std::string module_received_;
  Micros module_silent_until_ = 0;
  Micros module_slow_until_ = 0;

  std::array<bool, kSpacesOfDevice> occupied_ = {};

  std::unique_ptr<relay::Relay> relay_;
  uint64_t relay_life_ = 0;
  bool relay_on_bus_ = false;
  relay::Milliseconds relay_wakes_at_ = relay::kNever;
};

}  // namespace years
