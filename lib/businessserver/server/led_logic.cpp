// Which colour the space-state indicator shows: the state's, an external controller's, an operator's, or a test's.
#include <algorithm>

#include "assertion.h"
#include "server/business_server.h"

namespace businessserver {

namespace {

enum DeviceState { kStateFree = 0, kStateOccupied = 1, kStateReserved = 2, kStateAlarm = 3 };

constexpr int kOnOccupationLine = 1;

// The configuration's key for the colour of a state.
constexpr const char* kStateColourKeys[] = {
    kParkingfreeledcolor,    // kStateFree
    kParkingoccupyledcolor,  // kStateOccupied
    kParkingretainledcolor,  // kStateReserved
    kParkingalarmledcolor,   // kStateAlarm
};
constexpr int kStates = sizeof kStateColourKeys / sizeof kStateColourKeys[0];

// Alarm when any space is crossed by a car, else free as soon as one valid space is free.
int DeviceStateOf(const LX_Parking_Result_Param& result) {
  const auto begin = std::begin(result.spaces);
  const auto end = std::end(result.spaces);
  if (std::any_of(begin, end, [](const auto& space) { return space.occupy_line == kOnOccupationLine; })) {
    return kStateAlarm;
  }
  const bool free =
      std::any_of(begin, end, [](const auto& space) { return space.space_status == 0 && space.valid == 1; });
  return free ? kStateFree : kStateOccupied;
}

// A check's length in ms. A negative time ends at once; one beyond 49 days is cut to that.
unsigned CheckMilliseconds(int seconds) {
  const int64_t milliseconds = std::max<int64_t>(seconds, 0) * 1000;
  return static_cast<unsigned>(std::min<int64_t>(milliseconds, UINT32_MAX));
}

}  // namespace

bool BusinessServer::ExternalControlEnabled() const {
  const Json::Value& configuration = led_colour_cfg_;
  return configuration[kExternalcontrolEnable].asInt() != 0;
}

void BusinessServer::SetCurLedColor() {
  const int state = ExternalControlEnabled() ? led_.external_state : led_.device_state;
  const int previous_colour = led_.current_colour;
  if (state >= 0 && state < kStates) {
    const Json::Value& configuration = led_colour_cfg_;
    led_.current_colour = configuration[kParkingledcolorcfg][kStateColourKeys[state]].asInt();
  }
  if (led_.device_check || led_.control_model != 0) return;
  device_sdk_->OpenLed(led_.current_colour);
  if (led_.current_colour != previous_colour) BroadCastLedStatus(led_.current_colour);
}

void BusinessServer::SetDeviceStatus(int state) {
  BS_ASSERT(state >= 0 && state < kStates);
  if (state != led_.device_state) {
    Json::Value document;
    document[kType] = kFramestatusChanged;
    document[kBody][kFrameStatus] = state;
    BroadCast(document);
  }
  led_.device_state = state;
  SetCurLedColor();
}

// An unusable colour configuration costs the lamp, not the counts, frames and copies that follow.
void BusinessServer::PlateResultLedControl(LX_Parking_Result_Param* result) {
  BS_GUARDED([&] { SetDeviceStatus(DeviceStateOf(*result)); });
}

void BusinessServer::InitLedStatus() {
  BS_GUARDED([this] {
    GetKeyValueAndReplyBuf(kBusLedColor, led_colour_cfg_);
    ParkingAreaCfgInitLed(CountWatchedSpaces());
  });
}

void BusinessServer::InitDevCtrlMdl() {
  BS_GUARDED([this] {
    Json::Value document;
    GetKeyValueAndReplyBuf(kDevCtrlMdl, document);
    led_.control_model = document[kModel].asUInt();
  });
}

void BusinessServer::InitLedColorCfg() {
  GetKeyValueAndReplyBuf(kBusLedColor, led_colour_cfg_);
  SetCurLedColor();
}

void BusinessServer::ParkingAreaCfgInitLed(unsigned count) {
  PushOwnCounts(count, count);
  led_.device_state = count != 0 ? kStateFree : kStateOccupied;
  SetCurLedColor();
}

void BusinessServer::BroadCastLedStatus(int colour) {
  led_colour_broadcast_[kBody][kLedColor] = colour;
  BroadCast(led_colour_broadcast_);
}

void BusinessServer::SetDevLed(const Json::Value& body) {
  BS_GUARDED([&] {
    led_.manual_colour = body[kLed].asUInt();
    ShowColour(static_cast<int>(led_.manual_colour));
  });
}

void BusinessServer::StartCheckDev(const Json::Value& body) {
  BS_GUARDED([&] {
    const int colour = body[kLed].asInt();
    check_dev_timer_.Start(CheckMilliseconds(body[kTime].asInt()), 0);
    led_.device_check = true;
    ShowColour(colour);
  });
}

int BusinessServer::HandleCheckDev(int, short, const void* server) {
  auto* const self = static_cast<BusinessServer*>(const_cast<void*>(server));
  BS_GUARDED([self] {
    Led& led = self->led_;
    led.device_check = false;
    self->ShowColour(led.control_model == 0 ? led.current_colour : static_cast<int>(led.manual_colour));
  });
  return 0;
}

void BusinessServer::ShowColour(int colour) {
  device_sdk_->OpenLed(colour);
  BroadCastLedStatus(colour);
}

// ---- interface only ----

void BusinessServer::SetDeviceStatusExt(int state) {
  led_.external_state = state;
  SetCurLedColor();
}

void BusinessServer::LedControl() { SetCurLedColor(); }

}  // namespace businessserver
