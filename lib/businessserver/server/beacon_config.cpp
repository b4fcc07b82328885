// What the beacon module is told, and when.
#include <string>

#include "protocol/json_text.h"
#include "server/business_server.h"

namespace businessserver {

namespace {

constexpr size_t kUuidTextSize = 128;

struct BeaconIdentity {
  char uuid[kUuidTextSize] = {};
  unsigned short major = 0;
  unsigned short minor = 0;
};

void ToJson(const BeaconIdentity& identity, Json::Value& out) {
  out[kUuid] = std::string(FieldText(identity.uuid));
  out[kMajor] = static_cast<int>(identity.major);
  out[kMinor] = static_cast<int>(identity.minor);
}

}  // namespace

void BusinessServer::InitIbcCfg() {
  BS_GUARDED([this] {
    Json::Value period, send_power, test_power;
    GetKeyValueAndReplyBuf(kIbcBroper, period);
    beacon_.broadcast_period = period[kTime].asUInt();
    GetKeyValueAndReplyBuf(kIbcPower, send_power);
    beacon_.send_power = send_power[kPower].asInt();
    // Kept: the key called "txpower" is the module's measured power, the key called "power" its transmit power.
    GetKeyValueAndReplyBuf(kIbcTxpower, test_power);
    beacon_.test_power = test_power[kPower].asInt();
    UpdateIbcName();
    blue_tooth_->SetBroardCastPeriod(static_cast<int>(beacon_.broadcast_period));
    blue_tooth_->SetSendPower(beacon_.send_power);
    blue_tooth_->SetTestPower(beacon_.test_power);
  });
}

void BusinessServer::UpdateIbcName() {
  Json::Value document;
  if (GetKeyValueAndReplyBuf(kSysDeviceName, document) == 0) return;
  const std::string name = document[kDevicename].asString();
  blue_tooth_->SetBluetoothName(name.data(), static_cast<int>(name.size()));
}

int BusinessServer::SetBlueToothCfg(const Json::Value& body) {
  bool accepted = true;
  const bool done = BS_GUARDED([&] {
    if (!body[kUuid].isNull()) {
      // A UUID travels as text: its first 16 bytes are the identity, a shorter one is filled with zero bytes.
      std::string uuid = body[kUuid].asString();
      uuid.resize(kBeaconUuidSize);
      accepted = blue_tooth_->SetUUID(reinterpret_cast<const unsigned char*>(uuid.data())) == 0;
    }
    if (!body[kMajor].isNull()) {
      accepted &= blue_tooth_->SetMajor(static_cast<unsigned short>(body[kMajor].asUInt())) == 0;
    }
    if (!body[kMinor].isNull()) {
      accepted &= blue_tooth_->SetMinor(static_cast<unsigned short>(body[kMinor].asUInt())) == 0;
    }
    Json::Value document;
    GetBlueToothInfo(document);  // a silent module is recorded as an empty identity
    const std::string text = StyledText(document);
    StoreText(kSysBlueTooth, text);
    BS_LOG(kInfo) << text;
  });
  return accepted && done ? 0 : -1;
}

int BusinessServer::GetBlueToothInfo(Json::Value& out) {
  BeaconIdentity identity;
  int measured_power = 0;
  const int result = blue_tooth_->GetDeviceInfo(identity.uuid, &identity.major, &identity.minor, &measured_power);
  ToJson(identity, out);
  return result;
}

// ---- interface only ----

int BusinessServer::InitBlueTooth() {
  UpdateIbcName();
  blue_tooth_->SetBroardCastPeriod(static_cast<int>(beacon_.broadcast_period));
  return blue_tooth_->SetSendPower(beacon_.send_power);
}

}  // namespace businessserver
