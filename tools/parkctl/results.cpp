#include "results.h"

#include <ctime>
#include <iostream>
#include <iterator>

#include "bus_account.h"
#include "console.h"
#include "contract/check.h"
#include "device_bus.h"
#include "message_words.h"
#include "plain_words.h"
#include "protocol/frame_info.h"
#include "protocol/json_text.h"
#include "protocol/names.h"

namespace parkctl {

namespace bs = businessserver;

namespace {

uint32_t Address(const std::string& text) {
  uint32_t ip = 0;
  if (words::ParseAddress(text, ip)) return ip;
  throw UserError("'" + words::Printable(text) + "' is no address like 192.168.1.20");
}

uint32_t Position(const std::string& name) {
  static constexpr const char* kNames[] = {"own", "left", "right", "front"};
  for (uint32_t position = 0; position < std::size(kNames); ++position) {
    if (name == kNames[position]) return position;
  }
  return static_cast<uint32_t>(ParseNumber(name, 0, UINT32_MAX, "--position (own, left, right, front)"));
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

int Send(uint16_t bus_port, const char* role, const std::string& type, const std::string& data) {
  DeviceBus bus(bus_port, role);
  Outcome outcome = Outcome::kNoBroker;
  if (bus.Connect()) outcome = bus.Send(type, data);
  if (outcome == Outcome::kDelivered) {
    std::cout << Painted(MessagePaint(type), type) << "  " << MessageWords(type, data, Json::Value()) << std::endl;
  }
  return bus.Explain(outcome, type);
}

}  // namespace

int SendResult(const ResultOptions& options) {
  const auto now = static_cast<uint32_t>(time(nullptr));
  const bs::LX_Parking_Result_Param record = BuildRecord(options.spaces, options.record_text, now);
  const std::string data(reinterpret_cast<const char*>(&record), sizeof record);
  return Send(options.bus_port, platform::kRecogniserRole,
              options.change ? bs::kAvsParkRectChange : bs::kAvsSimulatorTrigger, data);
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
  return Send(options.bus_port, platform::kRelayRole, bs::kBusNetPush, bs::StyledText(push));
}

}  // namespace parkctl
