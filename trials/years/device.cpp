#include "years/device.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "devicesdk/tty_io.h"
#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/parking_result.h"
#include "years/requests.h"

namespace years {
namespace {

namespace bs = businessserver;

constexpr Micros kBusWay = 200;
constexpr Micros kSupervisorRest = 100 * kMillisecond;
constexpr Micros kModuleThinks = 3 * kMillisecond;
constexpr Micros kModuleThinksSlowly = 70 * kMillisecond;  // longer than it is waited for
constexpr Micros kResultPeriod = kMinute;
constexpr Micros kLineGrid = 10 * kMillisecond;
constexpr Micros kReplyPatience = 2 * kMinute;
constexpr Micros kFeedingPatience = 30 * kSecond;
constexpr unsigned kCarsPerSpaceAndDay = 60;
constexpr unsigned kRequestsPerDay = 60;
constexpr unsigned kAskedFromAfar = 300;  // of a thousand
constexpr uint64_t kTrafficStream = 0x7AFF1C;

enum : int { kBeaconLine = bs::TTY_DEV_UART1, kExternalLine = bs::TTY_DEV_UART2 };

}  // namespace

Device::Device(World& world, unsigned number, std::string name)
    : world_(world), number_(number), name_(std::move(name)), daemon_(world.schedule, *this) {
  store.on_write = [this](const std::string& key, const std::string* before, const std::string& after) {
    world_.digest.Add(key);
    world_.digest.Add(after);
    if (before != nullptr) world_.promises.DocumentReplaced(number_, key, *before, after);
  };
  daemon_.on_end = [this](bool killed) { DaemonEnded(killed); };
  line(kBeaconLine).far_end = [this](std::string_view bytes, Micros when) { HeardByModule(bytes, when); };
  PutOwnersDocuments(store, number_);
}

void Device::JoinSite() {
  store.values["relay_value"] = std::string(R"({"site": ")") + kSiteName + R"(", "device": ")" + name_ +
                                R"(", "broker": "mqtt://198.18.0.1", "remote": "configure"})";
}

void Device::StartDaemon() {
  ++starts_;
  daemon_.Start();
  // Until the first result it takes all its spaces for free, and says so.
  world_.promises.DeviceSees(number_, kSpacesOfDevice);
}

void Device::PowerOn() {
  StartDaemon();
  StartRelay();
  CheckWatchdog();
}

// ---- what happens by itself ----

void Device::BeginDay(uint64_t day) {
  Random random(world_.seed ^ kTrafficStream, day * 4096 + number_);
  const Micros begin = day * kDay;
  for (unsigned i = 0; i < kCarsPerSpaceAndDay * kSpacesOfDevice; ++i) {
    // The last minutes are for everybody to come to rest.
    const Micros when = begin + random.Below(kDay - 2 * kMinute);
    const size_t space = random.Below(kSpacesOfDevice);
    world_.schedule.At(when, [this, space] {
      occupied_[space] = !occupied_[space];
      Recognise();
    });
  }
  for (Micros when = begin + random.Below(kResultPeriod); when < begin + kDay; when += kResultPeriod) {
    world_.schedule.At(when, [this] { Recognise(); });
  }
  for (unsigned i = 0; i < kRequestsPerDay; ++i) {
    world_.schedule.At(begin + random.Below(kDay - kQuiet), [this, draw = random.Next()] {
      Random request(draw);
      if (request.Chance(kAskedFromAfar)) {
        AskFromAfar(request);
      } else {
        AskSomething(request);
      }
    });
  }
}

void Device::Recognise() {
  bs::LX_Parking_Result_Param record = {};
  for (size_t i = 0; i < kSpacesOfDevice; ++i) {
    bs::LX_ParkingResult& space = record.spaces[i];
    memcpy(space.plate, bs::kNoPlate, sizeof bs::kNoPlate);
    space.valid = space.second_flag = 1;
    space.space_status = occupied_[i] ? 1 : 0;
    space.trigger = bs::kTriggerRepeatable;
  }
  SendToDaemon(bs::kAvsSimulatorTrigger, std::string(reinterpret_cast<const char*>(&record), sizeof record), 0,
               world_.schedule.now());
}

void Device::AskSomething(Random& random) {
  const Question question = DrawQuestion(random);
  const uint32_t id = ++last_request_;
  asked_[id] = {question.text,
                world_.schedule.now(),
                daemon_.life(),
                bus_.life,
                daemon_.running() && bus_.up && bus_.daemon_connected,
                0,
                std::nullopt};
  SendToDaemon(question.path, question.text, id, world_.schedule.now());
  world_.schedule.In(kReplyPatience, [this, id] {
    const Asked& asked = asked_[id];
    const bool both_lived = asked.delivered && asked.daemon_life == daemon_.life() && asked.bus_life == bus_.life;
    if (asked.replies > 1 || (both_lived && asked.replies != 1)) {
      world_.promises.Break(number_, std::to_string(asked.replies) + " replies to " + asked.type);
    }
    asked_.erase(id);
  });
}

void Device::CheckWatchdog() {
  world_.schedule.In(kMinute, [this] {
    const Micros now = world_.schedule.now();
    if (daemon_.running() && !daemon_.Busy() && daemon_.fed_at + kFeedingPatience < now) {
      world_.promises.Break(number_, "the supervisor has not been told for " +
                                         std::to_string((now - daemon_.fed_at) / kSecond) + " s that the daemon lives");
    }
    CheckWatchdog();
  });
}

void Device::DaemonEnded(bool killed) {
  bus_.daemon_connected = false;
  line_poll = nullptr;
  if (!killed) world_.promises.Break(number_, "the daemon ended by itself");
  world_.promises.Excuse(number_, world_.schedule.now());
  world_.schedule.In(kSupervisorRest, [this] { StartDaemon(); });
}

// ---- bus ----

void Device::SendToDaemon(const std::string& type, const std::string& data, uint32_t id, Micros when) {
  if (!bus_.up) return;
  daemon_.Do(when + kBusWay, [this, type, data, id, life = bus_.life] {
    if (life != bus_.life || !bus_.daemon_connected || daemon_.subscriptions.count(type) == 0) return;
    if (type == bs::kAvsSimulatorTrigger) {
      const auto free = static_cast<unsigned>(std::count(occupied_.begin(), occupied_.end(), false));
      world_.promises.DeviceSees(number_, free);
    }
    // Record and payload in one block of exactly their size and a NUL.
    std::vector<uint64_t> block((sizeof(_TagDpMsg) + data.size() + 8) / 8);
    auto* message = reinterpret_cast<_TagDpMsg*>(block.data());
    message->type_name_len = static_cast<uint8_t>(type.size());
    memcpy(message->type_name, type.data(), std::min(type.size(), sizeof message->type_name - 1));
    message->message_id = id;
    message->data_size = static_cast<uint32_t>(data.size());
    memcpy(message + 1, data.data(), data.size());
    daemon_.on_message(nullptr, message, daemon_.user);
  });
}

bool Device::ConnectDaemon() {
  if (bus_.daemon_connected) return true;
  bus_.daemon_connected = bus_.up;
  if (!bus_.daemon_connected) TellBusIsDown();
  return bus_.daemon_connected;
}

void Device::TellBusIsDown() {
  daemon_.Do(world_.schedule.now() + kBusRetry, [this] {
    if (!bus_.daemon_connected) daemon_.on_status(nullptr, kDpStatusDisconnected, daemon_.user);
  });
}

void Device::KillBus(Micros lasts) {
  bus_.up = false;
  const uint64_t life = ++bus_.life;
  const bool had_daemon = std::exchange(bus_.daemon_connected, false);
  if (daemon_.running() && had_daemon) {
    daemon_.Do(world_.schedule.now(), [this] {
      if (!bus_.daemon_connected) daemon_.on_status(nullptr, kDpStatusDisconnected, daemon_.user);
    });
  }
  if (relay_on_bus_) {
    relay_on_bus_ = false;
    RelayTurn([this](relay::Milliseconds now) { relay_->BusDown(now); });
    ConnectRelayToBus();
  }
  world_.schedule.In(lasts, [this, life] {
    if (bus_.life == life) bus_.up = true;
  });
}

void Device::PublishedByDaemon(const std::string& type, const std::string& data, Micros when) {
  world_.digest.Add(type);
  world_.digest.Add(data);
  if (!bus_.daemon_connected) return;
  if (type == bs::kBusBroadcastMessage) world_.promises.Displayed(number_, data);
  world_.schedule.At(when + kBusWay, [this, type, data, life = bus_.life, relay_life = relay_life_] {
    if (life != bus_.life || relay_life != relay_life_ || !relay_on_bus_) return;
    RelayTurn([&](relay::Milliseconds now) { relay_->BusHeard(type, data, now); });
  });
}

void Device::Replied(uint32_t id, const std::string& data, Micros when) {
  world_.digest.Add(data);
  const auto asked = asked_.find(id);
  if (asked == asked_.end()) return;
  ++asked->second.replies;
  if (!asked->second.for_relay || !bus_.daemon_connected) return;
  world_.schedule.At(when + kBusWay, [this, data, id = *asked->second.for_relay, relay_life = relay_life_] {
    if (relay_life == relay_life_) RelayTurn([&](relay::Milliseconds now) { relay_->DeviceAnswered(id, data, now); });
  });
}

// ---- lines ----

void Device::OnWrite(int number, std::string_view bytes) {
  if (daemon_.dying()) return;
  daemon_.Call();
  world_.digest.Add(static_cast<uint64_t>(number));
  world_.digest.Add(bytes);
}

void Device::Input(int number, const std::string& bytes, Micros when) {
  line(number).Arrive(bytes, when);
  if (number != kExternalLine) return;
  daemon_.Do(when + kLineGrid - when % kLineGrid, [this] {
    if (line_poll) line_poll();
  });
}

void Device::HeardByModule(std::string_view bytes, Micros when) {
  module_received_ += bytes;
  for (size_t end; (end = module_received_.find("\r\n")) != std::string::npos; module_received_.erase(0, end + 2)) {
    const std::string answer = desk::AnswerBeaconCommand(module_received_.substr(0, end), module_);
    if (when < module_silent_until_) continue;
    Input(kBeaconLine, answer, when + (when < module_slow_until_ ? kModuleThinksSlowly : kModuleThinks));
  }
}

// ---- the rest ----

time_t Device::WallClock() const {
  return static_cast<time_t>(world_.wall_start + clock_offset_ + static_cast<int64_t>(daemon_.now() / kSecond));
}

void Device::Logged(const std::string& text) { world_.digest.Add(text); }

void Device::RanInShell(const std::string& command_line) { world_.digest.Add(command_line); }

void Device::Suffer(const Fault& fault) {
  world_.promises.Excuse(number_, world_.schedule.now() + fault.lasts);
  const Micros until = world_.schedule.now() + fault.lasts;
  switch (fault.kind) {
    case FaultKind::kDaemonKilled:
      return daemon_.Kill();
    case FaultKind::kDaemonKilledAtCall:
      return daemon_.KillAtCall(1 + static_cast<unsigned>(fault.detail % 200));
    case FaultKind::kRelayKilled:
      return EndRelay(false, fault.lasts);
    case FaultKind::kRelayStopped:
      return EndRelay(true, fault.lasts);
    case FaultKind::kBusKilled:
      return KillBus(fault.lasts);
    case FaultKind::kStoreAway:
      return store.GoAway(until);
    case FaultKind::kStoreLosesCall:
      return store.LoseAtCall(1 + static_cast<unsigned>(fault.detail % 16), (fault.detail & 16) != 0);
    case FaultKind::kLineStuck:
      return line(fault.detail % 2 == 0 ? kBeaconLine : kExternalLine).Stick(until);
    case FaultKind::kModuleSilent:
      module_silent_until_ = until;
      return;
    case FaultKind::kModuleSlow:
      module_slow_until_ = until;
      return;
    case FaultKind::kLineNoise: {
      Random random(fault.detail);
      for (Micros when = world_.schedule.now(); when <= until; when += 1 + random.Below(60 * kMillisecond)) {
        Input(random.Chance(800) ? kExternalLine : kBeaconLine, DrawBytes(random, 1 + random.Below(200)), when);
      }
      return;
    }
    case FaultKind::kClockJumps: {
      constexpr int64_t kFiftyYears = 50LL * 365 * 86400;
      clock_offset_ = static_cast<int64_t>(fault.detail % (2 * kFiftyYears)) - kFiftyYears;
      return;
    }
    case FaultKind::kNonsenseOnBus: {
      Random random(fault.detail);
      SendToDaemon(bs::DP_METHOD[random.Below(bs::kDpMethodCount)], DrawNonsense(random), 0, world_.schedule.now());
      return;
    }
    case FaultKind::kImplausiblePush:
      return SendToDaemon(bs::kBusNetPush, R"({"s_addr": 77, "totle": 2000000, "free": 1, "pos": 1})", 0,
                          world_.schedule.now());
    default:
      return;  // the site's
  }
}

}  // namespace years
