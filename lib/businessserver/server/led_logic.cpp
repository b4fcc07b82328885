// Which colour the space-state indicator shows: the state's, an external controller's, an operator's, or a test's.
#include <algorithm>

#include "assertion.h"
#include "server/business_server.h"

namespace businessserver {

namespace {

enum DeviceState { kStateFree = 0, kStateOccupied = 1, kStateReserved = 2, kStateAlarm = 3 };

constexpr int kOnOccupationLine = 1;

// The configuration's key for the colour of a state.
constexpr const char* kStateColorKeys[] = {
    kParkingfreeledcolor,    // kStateFree
    kParkingoccupyledcolor,  // kStateOccupied
    kParkingretainledcolor,  // kStateReserved
    kParkingalarmledcolor,   // kStateAlarm
};
constexpr int kStates = sizeof kStateColorKeys / sizeof kStateColorKeys[0];

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
  const Json::Value& configuration = led_color_cfg_;
  return configuration[kExternalcontrolEnable].asInt() != 0;
}

void BusinessServer::SetCurLedColor() {
  const int state = ExternalControlEnabled() ? led_.external_state : led_.device_state;
  const int previous_color = led_.current_color;
  if (state >= 0 && state < kStates) {
    const Json::Value& configuration = led_color_cfg_;
    led_.current_color = configuration[kParkingledcolorcfg][kStateColorKeys[state]].asInt();
  }
  if (led_.device_check || led_.control_model != 0) return;
  device_sdk_->OpenLed(led_.current_color);
  if (led_.current_color != previous_color) BroadCastLedStatus(led_.current_color);
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
    GetKeyValueAndReplyBuf(kBusLedColor, led_color_cfg_);
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
  GetKeyValueAndReplyBuf(kBusLedColor, led_color_cfg_);
  SetCurLedColor();
}

void BusinessServer::ParkingAreaCfgInitLed(unsigned count) {
  PushOwnCounts(count, count);
  led_.device_state = count != 0 ? kStateFree : kStateOccupied;
  SetCurLedColor();
}

void BusinessServer::BroadCastLedStatus(int color) {
  led_color_broadcast_[kBody][kLedColor] = color;
  BroadCast(led_color_broadcast_);
}

void BusinessServer::SetDevLed(const Json::Value& body) {
  BS_GUARDED([&] {
    led_.manual_color = body[kLed].asUInt();
    ShowColor(static_cast<int>(led_.manual_color));
  });
}

void BusinessServer::StartCheckDev(const Json::Value& body) {
  BS_GUARDED([&] {
    const int color = body[kLed].asInt();
    check_dev_timer_.Start(CheckMilliseconds(body[kTime].asInt()), 0);
    led_.device_check = true;
    ShowColor(color);
  });
}

int BusinessServer::HandleCheckDev(int, short, const void* server) {
  auto* const self = static_cast<BusinessServer*>(const_cast<void*>(server));
  BS_GUARDED([self] {
    Led& led = self->led_;
    led.device_check = false;
    self->ShowColor(led.control_model == 0 ? led.current_color : static_cast<int>(led.manual_color));
  });
  return 0;
}

void BusinessServer::ShowColor(int color) {
  device_sdk_->OpenLed(color);
  BroadCastLedStatus(color);
}

// ---- interface only ----

void BusinessServer::SetDeviceStatusExt(int state) {
  led_.external_state = state;
  SetCurLedColor();
}

void BusinessServer::LedControl() { SetCurLedColor(); }

}  // namespace businessserver
