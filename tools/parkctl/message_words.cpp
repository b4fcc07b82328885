#include "message_words.h"

#include <algorithm>
#include <exception>

#include "base64.h"
#include "plain_words.h"
#include "protocol/frame_info.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "record_text.h"
#include "serial_decoder.h"

namespace parkctl {

namespace bs = businessserver;

namespace {

constexpr size_t kLineMax = 600;  // bytes; a longer text is cut
constexpr size_t kHexMax = 32;    // bytes of a payload that is no text
constexpr char kReplySuffix[] = "/reply";
constexpr int kBase64Flag = 0;

std::string RawWords(const std::string& data) {
  if (data.empty()) return "(empty)";
  const std::string hex = words::HexText(data.data(), std::min(data.size(), kHexMax));
  return std::to_string(data.size()) + " bytes: " + hex + (data.size() > kHexMax ? " ..." : "");
}

std::string Count(const Json::Value& value) { return value.isNull() ? "?" : OneLineText(value); }

std::string Address(const Json::Value& ip) {
  return ip.isUInt() ? words::AddressText(ip.asUInt()) : "address " + OneLineText(ip);
}

std::string FreeOfTotal(const Json::Value& free, const Json::Value& total) {
  return Count(free) + " free of " + Count(total);
}

// The devices that another one reports for.
std::string ControlledDevices(const Json::Value& devices) {
  std::string words;
  for (const Json::Value& device : devices) {
    words += "; " + Address(device[bs::kIp]) + ": " + FreeOfTotal(device[bs::kFn], device[bs::kTn]);
  }
  return words;
}

std::string SerialBytes(const Json::Value& body, const Json::Value& field_list) {
  const std::string text = body[bs::kData].asString();
  int size = 0;
  const std::string bytes = lxbase::Base64::DecodeFromArray(text.data(), text.size(), kBase64Flag, &size);
  if (size < 0) return "data that is not base64";
  std::string words = RawWords(bytes);
  if (body[bs::kDataLen] != Json::Value(size)) words += " (data_len says " + Count(body[bs::kDataLen]) + ")";
  for (const words::DecodedFrame& frame :
       words::DecodeBurst(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), field_list)) {
    if (frame.kind != words::FrameKind::kUnknown) words += ": " + frame.Text();
  }
  return words;
}

// ---- one function a kind of document; Json exceptions mean that it is none of that kind ----

std::string BroadcastWords(const Json::Value& document, const Json::Value& field_list) {
  const std::string type = document[bs::kType].asString();
  const Json::Value& body = document[bs::kBody];
  if (type == bs::kLedcolorChanged) return "LED colour " + words::LedColorText(body[bs::kLedColor].asInt());
  if (type == bs::kFramestatusChanged) {
    return std::string("the device shows ") + words::SpaceStateName(body[bs::kFrameStatus].asInt());
  }
  if (type == bs::kFrameChanged) {
    return FreeOfTotal(body[bs::kFree], body[bs::kTotle]) + ControlledDevices(body[bs::kCmDev]);
  }
  if (type == bs::kTtyioDataBro) return "serial line received " + SerialBytes(body, field_list);
  return OneLineText(document);
}

std::string ListenWords(const Json::Value& document, const Json::Value& field_list) {
  const std::string type = document[bs::kType].asString();
  const Json::Value& body = document[bs::kBody];
  if (type == bs::kSendTtyioData) return "to the serial line " + SerialBytes(body, field_list);
  if (type == bs::kSetTtyioHalt) return body[bs::kHalt].asInt() != 0 ? "halt serial output" : "resume serial output";
  return OneLineText(document);
}

std::string PushWords(const Json::Value& document, const Json::Value&) {
  return Address(document[bs::kSAddr]) + " (" + words::PositionName(document[bs::kPos].asUInt()) +
         "): " + FreeOfTotal(document[bs::kFree], document[bs::kTotle]) + ControlledDevices(document[bs::kCmDev]);
}

std::string RequestWords(const Json::Value& document, const Json::Value&) {
  const Json::Value& body = document[bs::kBody];
  return document[bs::kType].asString() + (body.isNull() ? "" : " " + OneLineText(body));
}

std::string ReplyWords(const Json::Value& document, const Json::Value& field_list) {
  const std::string command = RequestWords(document, field_list);
  return std::to_string(document[bs::kState].asInt()) + " " + document[bs::kErrorMsg].asString() +
         (command.empty() ? "" : ": " + command);
}

std::string DocumentWords(const Json::Value& document, const Json::Value&) { return OneLineText(document); }

struct WatchedType {
  std::string type;
  Paint paint;
  std::string (*words)(const Json::Value& document, const Json::Value& field_list);  // null: carries a result record
};

const std::vector<WatchedType>& Watched() {
  static const std::vector<WatchedType> kTypes = {
      {bs::kAvsSimulatorTrigger, Paint::kGood, nullptr},
      {bs::kAvsParkRectChange, Paint::kGood, nullptr},
      {bs::kBusSimulatorTrigger, Paint::kGood, nullptr},
      {bs::kBusBroadcastMessage, Paint::kBlue, BroadcastWords},
      {bs::kBusBroadlistenMessage, Paint::kYellow, ListenWords},
      {bs::kBusNetPush, Paint::kMagenta, PushWords},
      {bs::kBusRequestMessage, Paint::kYellow, RequestWords},
      {bs::kBusExtRequestMessage, Paint::kYellow, RequestWords},
      {std::string(bs::kBusRequestMessage) + kReplySuffix, Paint::kYellow, ReplyWords},
      {std::string(bs::kBusExtRequestMessage) + kReplySuffix, Paint::kYellow, ReplyWords},
      {bs::kSysDeviceNameChanged, Paint::kNone, DocumentWords},
      {bs::kHttpBroadcastMessageRoot, Paint::kNone, DocumentWords},
      {bs::kHttpRequestMessageRoot, Paint::kBad, DocumentWords},
  };
  return kTypes;
}

const WatchedType* Find(const std::string& type) {
  for (const WatchedType& watched : Watched()) {
    if (watched.type == type) return &watched;
  }
  return nullptr;
}

bool CarriesRecord(const WatchedType* watched) { return watched != nullptr && watched->words == nullptr; }

}  // namespace

std::vector<std::string> WatchedTypes() {
  std::vector<std::string> types;
  for (const WatchedType& watched : Watched()) types.push_back(watched.type);
  return types;
}

std::string MessageWords(const std::string& type, const std::string& data, const Json::Value& field_list) {
  const WatchedType* watched = Find(type);
  bs::LX_Parking_Result_Param record;
  std::string problem;
  const bool is_record = ReadRecord(data, record, problem);
  if (CarriesRecord(watched)) return is_record ? RecordLine(record) : problem;
  Json::Value document;
  if (!bs::ParseJson(data, document))
    return words::Beginning(is_record ? RecordLine(record) : RawWords(data), kLineMax);
  try {
    return words::Beginning(
        words::Printable(watched != nullptr ? watched->words(document, field_list) : OneLineText(document)), kLineMax);
  } catch (const std::exception&) {  // a document of another form than its type promises
    return words::Beginning(OneLineText(document), kLineMax);
  }
}

std::string CountsByPosition(const Json::Value& counts) {
  static constexpr struct {
    uint32_t position;
    const char* totals;
    const char* frees;
  } kCounts[] = {{bs::kOwnGroup, bs::kNTotles, bs::kNFrees},
                 {bs::kLeft, bs::kLTotles, bs::kLFrees},
                 {bs::kRight, bs::kRTotles, bs::kRFrees},
                 {bs::kFront, bs::kFTotles, bs::kFFrees}};
  std::string words = FreeOfTotal(counts[bs::kFree], counts[bs::kTotle]);
  const char* separator = ": ";
  for (const auto& row : kCounts) {
    if (counts[row.totals] == 0) continue;
    words += separator + words::PositionName(row.position) + " " + Count(counts[row.frees]) + " of " +
             Count(counts[row.totals]);
    separator = ", ";
  }
  return words;
}

Json::Value MessageJson(const std::string& type, const std::string& data, const Json::Value& field_list) {
  Json::Value message;
  message["type"] = type;
  message["words"] = MessageWords(type, data, field_list);
  bs::LX_Parking_Result_Param record;
  std::string problem;
  Json::Value document;
  const bool is_record = ReadRecord(data, record, problem);
  if (is_record && CarriesRecord(Find(type))) {
    message["record"] = RecordJson(record);
  } else if (!CarriesRecord(Find(type)) && bs::ParseJson(data, document)) {
    message["document"] = document;
  } else {
    message["hex"] = words::HexText(data.data(), data.size());
  }
  return message;
}

Paint MessagePaint(const std::string& type) {
  const WatchedType* watched = Find(type);
  return watched != nullptr ? watched->paint : Paint::kNone;
}

}  // namespace parkctl
