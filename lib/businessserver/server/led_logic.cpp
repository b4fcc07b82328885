// Which colour the space-state indicator shows: the state's, an external controller's, an operator's, or a test's.
#include <algorithm>
#include <exception>

#include "assertion.h"
#include "server/business_server.h"

namespace businessserver {

namespace {

enum DeviceState { kStateFree = 0, kStateOccupied = 1, kStateReserved = 2, kStateAlarm = 3 };

constexpr int kOnOccupationLine = 1;
constexpr unsigned kMaxReportedSpaces = 3;

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

unsigned CountEnabledSpaces(const Json::Value& area_document) {
  const Json::Value& frames = area_document[kParkingareacfg][kParkingframe];
  unsigned count = 0;
  for (Json::ArrayIndex i = 0; i < frames.size(); ++i) {
    if (frames[i][kParkingframeenable].asInt() != 0) ++count;
  }
  return count;
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

void BusinessServer::SetDeviceStatusExt(int state) {
  led_.external_state = state;
  SetCurLedColor();
}

void BusinessServer::LedControl() { SetCurLedColor(); }

// An unusable colour configuration costs the lamp, not the counts, frames and copies that follow.
void BusinessServer::PlateResultLedControl(LX_Parking_Result_Param* result) {
  try {
    SetDeviceStatus(DeviceStateOf(*result));
  } catch (const std::exception& error) {
    BS_LOG(kError) << error.what();
  }
}

void BusinessServer::InitLedStatus() {
  try {
    GetKeyValueAndReplyBuf(kBusLedColor, led_color_cfg_);
    Json::Value area;
    if (GetKeyValueAndReplyBuf(kAlgAreaPark, area) != 0) {
      ParkingAreaCfgInitLed(CountEnabledSpaces(area));
      return;
    }
    BS_LOG(kLifecycle) << "Get AVS_ALG_AREA_PARK Kvdb failed";
    Json::Value info;
    unsigned count = kMaxReportedSpaces;
    if (GetKeyValueAndReplyBuf(kSysDeviceInfo, info) != 0) count = std::min(info[kParkingNum].asUInt(), count);
    ParkingAreaCfgInitLed(count);
  } catch (const std::exception& error) {
    BS_LOG(kError) << error.what();
  }
}

void BusinessServer::InitLedColorCfg() {
  GetKeyValueAndReplyBuf(kBusLedColor, led_color_cfg_);
  SetCurLedColor();
}

void BusinessServer::ParkingAreaCfgInitLed(unsigned count) {
  own_status_.totle = count;
  own_status_.free = count;
  own_status_.ip = kLoopbackAddress;
  PushNetStatus(own_status_, Json::Value());
  led_.device_state = count != 0 ? kStateFree : kStateOccupied;
  SetCurLedColor();
}

void BusinessServer::BroadCastLedStatus(int color) {
  led_color_broadcast_[kBody][kLedColor] = color;
  BroadCast(led_color_broadcast_);
}

void BusinessServer::SetDevLed(const Json::Value& body) {
  try {
    led_.manual_color = body[kLed].asUInt();
    device_sdk_->OpenLed(static_cast<int>(led_.manual_color));
    BroadCastLedStatus(static_cast<int>(led_.manual_color));
  } catch (const std::exception& error) {
    BS_LOG(kError) << error.what();
  }
}

void BusinessServer::StartCheckDev(const Json::Value& body) {
  try {
    const int color = body[kLed].asInt();
    check_dev_timer_.Start(CheckMilliseconds(body[kTime].asInt()), 0);
    led_.device_check = true;
    device_sdk_->OpenLed(color);
    BroadCastLedStatus(color);
  } catch (const std::exception& error) {
    BS_LOG(kError) << error.what();
  }
}

int BusinessServer::HandleCheckDev(int, short, const void* server) {
  auto* const self = static_cast<BusinessServer*>(const_cast<void*>(server));
  try {
    self->led_.device_check = false;
    const int color =
        self->led_.control_model == 0 ? self->led_.current_color : static_cast<int>(self->led_.manual_color);
    const boost::shared_ptr<DeviceSdk> device_sdk = self->device_sdk_;
    device_sdk->OpenLed(color);
    self->BroadCastLedStatus(color);
  } catch (const std::exception& error) {
    BS_LOG(kError) << error.what();
  }
  return 0;
}

}  // namespace businessserver
