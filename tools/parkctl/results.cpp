#include "results.h"

#include <ctime>
#include <iostream>
#include <iterator>

#include "bus_account.h"
#include "console.h"
#include "contract/check.h"
#include "contract/faults.h"
#include "contract/schemas.h"
#include "device_bus.h"
#include "message_words.h"
#include "plain_words.h"
#include "protocol/commands.h"
#include "protocol/frame_info.h"
#include "protocol/json_text.h"
#include "protocol/names.h"

namespace parkctl {

namespace bs = businessserver;

namespace {

constexpr std::chrono::milliseconds kDaemonWait{5000};

int NumberOf(const Json::Value& value) { return value.isInt() ? value.asInt() : -1; }

uint32_t Address(const std::string& text) {
  uint32_t ip = 0;
  if (words::ParseAddress(text, ip)) return ip;
  throw UserError("'" + words::Printable(text) + "' is no address like 192.168.1.20");
}

uint32_t Position(const std::string& name) {
  uint32_t position = 0;
  if (words::ParsePosition(name, position)) return position;
  throw UserError("--position (own, left, right, front): '" + words::Printable(name) + "' is none");
}

Json::Value ControlledDevice(const std::string& text) {
  const size_t first = text.find(':');
  const size_t second = first == std::string::npos ? first : text.find(':', first + 1);
  if (second == std::string::npos) {
    throw UserError("--device '" + words::Printable(text) + "': write ADDRESS:TOTAL:FREE, e.g. 192.168.1.31:2:1");
  }
  const std::string total = text.substr(first + 1, second - first - 1);
  Json::Value device;
  device[bs::kIp] = Address(text.substr(0, first));
  device[bs::kTn] = static_cast<Json::UInt>(ParseNumber(total, 0, UINT32_MAX, "--device TOTAL"));
  device[bs::kFn] = static_cast<Json::UInt>(ParseNumber(text.substr(second + 1), 0, UINT32_MAX, "--device FREE"));
  return device;
}

// Publishes in a role, and says what was published.
int Send(uint16_t bus_port, const char* role, const std::string& type, const std::string& data) {
  DeviceBus bus(bus_port, role);
  Outcome outcome = Outcome::kNoBroker;
  if (bus.Connect()) outcome = bus.Send(type, data);
  if (outcome == Outcome::kDelivered) {
    std::cout << Painted(MessagePaint(type), type) << "  " << MessageWords(type, data, Json::Value()) << std::endl;
  }
  return bus.Explain(outcome, type);
}

// What the daemon itself says afterwards: on the bus anybody may have taken the message, a watcher too.
class Daemon {
 public:
  explicit Daemon(uint16_t bus_port) : bus_(bus_port, platform::kIntegratorRole), up_(bus_.Connect()) {}

  int Ask(const char* command, std::string& reply) {
    Json::Value request;
    request[bs::kType] = command;
    const Outcome outcome =
        up_ ? bus_.Ask(bs::kBusRequestMessage, words::CompactText(request), kDaemonWait, reply) : Outcome::kNoBroker;
    return bus_.Explain(outcome, bs::kBusRequestMessage);
  }

  // The body of a reply with state 200, or nothing.
  int AskBody(const char* command, Json::Value& body) {
    std::string reply;
    Json::Value document;
    const int status = Ask(command, reply);
    if (status != kDone) return status;
    if (!bs::ParseJson(reply, document) || !document.isObject() || !document[bs::kBody].isObject()) {
      Note(std::string("the daemon's answer to ") + command + " is none that this tool knows");
      return kRefused;
    }
    body = document[bs::kBody];
    return kDone;
  }

 private:
  DeviceBus bus_;
  const bool up_;
};

// The same event: what the daemon forwards besides may be older, such as the plate that a free space last held.
bool Forwards(const bs::LX_Parking_Result_Param& latest, const bs::LX_Parking_Result_Param& sent) {
  for (size_t i = 0; i < bs::kSpaces; ++i) {
    const bs::LX_ParkingResult& a = latest.spaces[i];
    const bs::LX_ParkingResult& b = sent.spaces[i];
    if (a.valid != b.valid) return false;
    if (b.valid == 1 && (a.space_status != b.space_status || a.time_stamp != b.time_stamp || a.trigger != b.trigger ||
                         a.occupy_line != b.occupy_line)) {
      return false;
    }
  }
  return true;
}

// Numbers of a record that the device takes for others, or that mean nothing.
std::vector<contract::Fault> RecordFaults(const bs::LX_Parking_Result_Param& record) {
  std::vector<contract::Fault> faults;
  const Json::Value document = RecordJson(record);
  for (const Json::Value& space : document["spaces"]) {
    for (const Json::Value& field : contract::Schema("messages/result")["x-fields"]) {
      if (!field.isMember("minimum") || space["valid"] != 1) continue;
      const std::string name = field["name"].asString();
      for (contract::Finding& found : contract::FindFaults(field, space[name])) {
        found.fault.place = "space " + space["space"].asString() + "." + name;
        faults.push_back(std::move(found.fault));
      }
    }
  }
  return faults;
}

int TellResult(uint16_t bus_port, const bs::LX_Parking_Result_Param& sent, bool forwarded) {
  Daemon daemon(bus_port);
  Json::Value state;
  std::string reply;
  int status = daemon.AskBody(bs::kGetDeviceFrameStatus, state);
  if (status == kDone) status = daemon.Ask(bs::kGetLatestIvsresult, reply);
  if (status != kDone) return status;
  std::cout << "the daemon shows " << words::SpaceStateName(NumberOf(state[bs::kFrameStatus])) << ", lamp "
            << words::LedColorText(NumberOf(state[bs::kLedColor])) << "\n";
  bs::LX_Parking_Result_Param latest;
  std::string problem;
  if (!ReadRecord(reply, latest, problem)) {
    Note("its latest result is " + problem);
    return kRefused;
  }
  const char* const what = !forwarded               ? "and forwards no results of this type; its latest is  "
                           : Forwards(latest, sent) ? "and forwarded  "
                                                    : "and did not forward it, as a repeat; its latest is  ";
  std::cout << what << RecordLine(latest) << "\n";
  return kDone;
}

}  // namespace

int SendResult(const ResultOptions& options) {
  const auto now = static_cast<uint32_t>(time(nullptr));
  const bs::LX_Parking_Result_Param record = BuildRecord(options.spaces, options.record_text, now);
  if (!options.force && !SayFaults(RecordFaults(record))) return kMisused;
  const std::string data(reinterpret_cast<const char*>(&record), sizeof record);
  const int status = Send(options.bus_port, platform::kRecogniserRole,
                          options.change ? bs::kAvsParkRectChange : bs::kAvsSimulatorTrigger, data);
  return status == kDone ? TellResult(options.bus_port, record, !options.change) : status;
}

int SendPush(const PushOptions& options) {
  Json::Value push;
  push[bs::kSAddr] = Address(options.address);
  if (!options.force && (push[bs::kSAddr] == 0u || push[bs::kSAddr] == bs::kLoopbackAddress)) {
    throw UserError("the device ignores pushes from " + options.address + ": give a neighbour's address");
  }
  push[bs::kTotle] = options.total;
  push[bs::kFree] = options.free;
  push[bs::kPos] = Position(options.position);
  push[bs::kCmDev] = Json::Value();
  for (const std::string& device : options.devices) push[bs::kCmDev].append(ControlledDevice(device));
  if (!options.force && !SayFaults(contract::Check("messages/net_push", push))) return kMisused;
  int status = Send(options.bus_port, platform::kRelayRole, bs::kBusNetPush, bs::StyledText(push));
  Json::Value counts;
  if (status == kDone) status = Daemon(options.bus_port).AskBody(bs::kGetNetStatus, counts);
  if (status == kDone) std::cout << "the daemon counts " << CountsByPosition(counts) << "\n";
  return status;
}

}  // namespace parkctl
