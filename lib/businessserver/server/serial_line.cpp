// The external serial line: its settings, the bursts that arrive on it, and which of the serial outputs runs when.
#include <algorithm>
#include <iterator>

#include "base64.h"
#include "protocol/json_text.h"
#include "rs485pro/fixed_frames.h"
#include "server/business_server.h"

namespace businessserver {

namespace {

constexpr int kSerialDataBase64Flag = 21;
constexpr int64_t kMaxLineTime = 10000;  // ms that one message may hold the loop and the line

// The selector "proto" of the stored settings. Any other value leaves the configurable frame alone on the line.
enum SerialProtocol : uint32_t { kDisplayProtocol = 0, kRelayProtocol = 1, kNoSerialOutput = 255 };

bool HasAllLineSettings(const Json::Value& document) {
  static constexpr const char* kKeys[] = {kTtyionum, kBaudrate, kCheckbit, kDatabit, kStopbit};
  return document.isObject() &&
         std::all_of(std::begin(kKeys), std::end(kKeys), [&](const char* key) { return document[key].isInt(); });
}

bool HasAllSpaceAddresses(const Json::Value& document) {
  return std::none_of(std::begin(kFrameAddr), std::end(kFrameAddr),
                      [&](const char* key) { return !document.isMember(key); });
}

// A triggered result goes out once: repeats of it arrive without the second flag.
bool GoesToLine(const LX_ParkingResult& result) {
  return result.valid == 1 && (result.second_flag != 0 || result.trigger != kTriggerRepeatable);
}

}  // namespace

void BusinessServer::SetTtyioParity() {
  Json::Value document;
  GetKeyValueAndReplyBuf(kDeviceTtyio, document);
  if (!HasAllLineSettings(document)) {
    ParseJson(ReplaceUnusable(kDeviceTtyio, document, "a setting of the line is missing or no number"), document);
  }
  device_sdk_->SetTtyioParity(document[kDatabit].asInt(), document[kCheckbit].asInt(), document[kStopbit].asInt(),
                              document[kBaudrate].asInt());
}

void BusinessServer::OnReadTtyioDataHandle(void* data, int len, void*) {
  BS_LOG(kInfo) << "OnReadTtyioDataHandle : " << len;
  Json::Value document;
  document[kType] = kTtyioDataBro;
  document[kBody][kData] = lxbase::Base64::EncodeFromArray(data, static_cast<size_t>(len));
  document[kBody][kDataLen] = len;
  BroadCast(document);
}

void BusinessServer::SendListenedData(const Json::Value& body) {
  const std::string text = body[kData].asString();
  const int data_len = body[kDataLen].asInt();
  const std::string data = lxbase::Base64::DecodeFromArray(text.data(), text.size(), kSerialDataBase64Flag, nullptr);
  if (data.empty() && !text.empty()) {
    BS_LOG(kError) << "send_ttyio_data: data is not base64, nothing sent";
    return;
  }
  // The sender's count decides, as far as there are bytes to send.
  const int length = std::clamp(data_len, 0, static_cast<int>(data.size()));
  if (length != data_len) {
    BS_LOG(kError) << "send_ttyio_data: data_len " << data_len << " but " << data.size() << " bytes of data";
  }
  const int64_t line_time = device_sdk_->SendTime(length);
  if (line_time > kMaxLineTime) {
    BS_LOG(kError) << "send_ttyio_data: " << length << " bytes take the line " << line_time << " ms, nothing sent";
    return;
  }
  device_sdk_->SendTtyioData(data.data(), length);
}

void BusinessServer::SetSerialHalt(const Json::Value& body) {
  serial_output_.halt = static_cast<uint32_t>(body[kHalt].asInt());
}

void BusinessServer::InitExtProtoConst() {
  BS_GUARDED([this] {
    Json::Value document;
    GetKeyValueAndReplyBuf(kExtTtyio, document);
    const Json::Value& settings = document;
    serial_output_.proto = settings[kProto].asUInt();
    serial_output_.front.enabled = settings[kFEna].asUInt();
    serial_output_.front.address = settings[kFAddr].asUInt();
    serial_output_.right.enabled = settings[kREna].asUInt();
    serial_output_.right.address = settings[kRAddr].asUInt();
    serial_output_.left.enabled = settings[kLEna].asUInt();
    serial_output_.left.address = settings[kLAddr].asUInt();
    std::fill(std::begin(serial_output_.space_addresses), std::end(serial_output_.space_addresses), 0);
    if (!HasAllSpaceAddresses(settings)) {  // written before the relay protocol existed
      for (const char* key : kFrameAddr) document[key] = 0;
      StoreText(kExtTtyio, StyledText(document));
    }
    for (size_t i = 0; i < kSpaces; ++i) serial_output_.space_addresses[i] = settings[kFrameAddr[i]].asUInt();
  });
}

void BusinessServer::InitRs485Cfg() {
  Json::Value document;
  GetKeyValueAndReplyBuf(kRs485pro, document);
  if (rs485_pro_->SetRs485Cfg(document)) return;
  rs485_pro_->SetRs485Str(std::string(ReplaceUnusable(kRs485pro, document, "no description of a frame")));
}

int BusinessServer::SetRs485Cfg(const std::string& text) {
  if (!rs485_pro_->SetRs485Str(text)) {
    InitRs485Cfg();  // a refused list may have been applied in part
    return -1;
  }
  return StoreText(kRs485pro, text);
}

void BusinessServer::SendDevRs485ProData(LX_Parking_Result_Param* param) {
  if (param == nullptr || serial_output_.halt != 0) return;
  switch (serial_output_.proto) {
    case kNoSerialOutput:
      return;
    case kRelayProtocol:
      SendSWTtyioData(param);
      return;
    case kDisplayProtocol:  // the line belongs to the displays as soon as there is one
      if (serial_output_.front.enabled != 0 || serial_output_.left.enabled != 0 || serial_output_.right.enabled != 0) {
        return;
      }
      break;
    default:
      break;
  }
  const FrameDetailInfos& counts = net_push_->Counts();
  for (const LX_ParkingResult& result : param->spaces) {
    if (!GoesToLine(result)) continue;
    unsigned length = 0;
    const uint8_t* frame = rs485_pro_->GetDevRs485ProData(length, counts.free, counts.totle, &result);
    device_sdk_->SendTtyioData(reinterpret_cast<const char*>(frame), static_cast<int>(length));
  }
}

void BusinessServer::SendSWTtyioData(LX_Parking_Result_Param* param) {
  if (param == nullptr) return;
  for (size_t i = 0; i < kSpaces; ++i) {
    const LX_ParkingResult& result = param->spaces[i];
    if (result.valid != 1) continue;
    uint8_t frame[kRelayFrameSize];
    ByteWriter out(frame);
    EncodeRelayFrame(serial_output_.space_addresses[i], result.space_status != 0, out);
    device_sdk_->SendTtyioData(reinterpret_cast<const char*>(frame), static_cast<int>(out.size()));
  }
}

void BusinessServer::SendYBTtyioData() {
  if (serial_output_.halt == 0 && serial_output_.proto == kDisplayProtocol) RefreshDisplays();
}

void BusinessServer::RefreshDisplays() {
  const FrameDetailInfos& counts = net_push_->Counts();
  const auto show = [this](const Display& display, uint32_t value) {
    if (display.enabled == 0) return;
    unsigned length = 0;
    const uint8_t* frame = rs485_pro_->GetYBRs485ProData(length, value, display.address);
    device_sdk_->SendTtyioData(reinterpret_cast<const char*>(frame), static_cast<int>(length));
  };
  show(serial_output_.front, counts.n_frees + counts.f_frees);
  show(serial_output_.left, counts.l_frees);
  show(serial_output_.right, counts.r_frees);
}

// ---- interface only ----

int BusinessServer::SendYBTtyioSingleData(unsigned value, unsigned address) {
  uint8_t frame[kDisplayFrameMax];
  ByteWriter out(frame);
  EncodeDisplayFrame(value, address, out);
  return device_sdk_->SendTtyioData(reinterpret_cast<const char*>(frame), static_cast<int>(out.size()));
}

}  // namespace businessserver
