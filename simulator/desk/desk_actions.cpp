// What the people and the other processes around the device do.
#include <sodium.h>

#include <cstring>

#include "desk/desk.h"
#include "plain_words.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/stored_documents.h"

namespace desk {
namespace {

namespace bs = businessserver;

std::string EncodeBase64(const std::string& bytes) {
  std::string text(sodium_base64_encoded_len(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
  sodium_bin2base64(&text[0], text.size(), reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                    sodium_base64_VARIANT_ORIGINAL);
  text.resize(strlen(text.c_str()));
  return text;
}

// {"type": type, "body": body}; the body's text goes in as it is, so that a script can send what is no JSON.
std::string Envelope(const std::string& type, const std::string& body) {
  std::string text = std::string("{\"") + bs::kType + "\": \"" + type + "\"";
  if (!body.empty()) text += std::string(", \"") + bs::kBody + "\": " + body;
  return text + "}";
}

}  // namespace

std::string Desk::Delivered(bool sent) const { return sent ? "" : "  (not delivered: the broker is away)"; }

void Desk::SetFields(size_t space, const Fields& fields) {
  std::string problem;
  for (const auto& [field, value] : fields) {
    if (!recogniser_.SetField(space, field, value, problem)) journal_.Add(Source::kRecogniser, problem);
  }
}

void Desk::PublishResult(const std::string& what, bool change) {
  const auto& record = recogniser_.record();
  const std::string payload(reinterpret_cast<const char*>(&record), sizeof record);
  const bool sent = bus_.Publish(change ? bs::kAvsParkRectChange : bs::kAvsSimulatorTrigger, payload);
  std::string text = what;
  for (size_t i = 1; i <= bs::kSpaces; ++i) {
    text += (i == 1 ? "  [" : " | ") + std::to_string(i) + " " + SpaceText(recogniser_.space(i));
  }
  journal_.Add(Source::kRecogniser, text + "]" + Delivered(sent));
}

void Desk::CarArrives(size_t space, const std::string& plate, const Fields& fields, bool change) {
  recogniser_.Arrive(space, plate);
  SetFields(space, fields);
  PublishResult("a car arrives on space " + std::to_string(space), change);
}

void Desk::CarLeaves(size_t space, const Fields& fields, bool change) {
  recogniser_.Leave(space);
  SetFields(space, fields);
  PublishResult("the car leaves space " + std::to_string(space), change);
}

void Desk::CrossesLine(size_t space, int value, const Fields& fields, bool change) {
  recogniser_.CrossLine(space, value);
  SetFields(space, fields);
  const char* what = value == 0 ? "the line is clear again on space " : "a car stands across the line of space ";
  PublishResult(what + std::to_string(space), change);
}

void Desk::Sees(size_t space, const Fields& fields, bool change) {
  recogniser_.Touch(space);
  SetFields(space, fields);
  PublishResult("a look at space " + std::to_string(space), change);
}

void Desk::PublishRecordOf(size_t bytes) {
  const auto& record = recogniser_.record();
  std::string payload(reinterpret_cast<const char*>(&record), sizeof record);
  payload.resize(bytes);
  const bool sent = bus_.Publish(bs::kAvsSimulatorTrigger, payload);
  journal_.Add(Source::kRecogniser, "a record of " + std::to_string(bytes) + " bytes" + Delivered(sent));
}

void Desk::NeighbourFallsSilent(uint32_t ip) {
  const bool known = neighbours_.Silence(ip);
  journal_.Add(Source::kNeighbour,
               words::AddressText(ip) + (known ? " falls silent" : " was never heard: it cannot fall silent"));
}

void Desk::SendRequest(const std::string& topic, const std::string& command, const std::string& body) {
  const bool sent = bus_.Request(topic, Envelope(command, body), kReplyTopic, std::to_string(++requests_));
  const char* path = topic == bs::kBusExtRequestMessage ? "external " : "";
  journal_.Add(Source::kRequest, path + command + (body.empty() ? "" : " " + Shortened(body)) + Delivered(sent));
}

void Desk::Request(const std::string& command, const std::string& body) {
  SendRequest(bs::kBusRequestMessage, command, body);
}

void Desk::ExternalRequest(const std::string& command, const std::string& body) {
  SendRequest(bs::kBusExtRequestMessage, command, body);
}

void Desk::Listen(const std::string& type, const std::string& body) {
  Publish(bs::kBusBroadlistenMessage, Envelope(type, body));
}

void Desk::SendSerialData(const std::string& bytes) {
  Json::Value body;
  body[bs::kData] = EncodeBase64(bytes);
  body[bs::kDataLen] = static_cast<int>(bytes.size());
  Listen(bs::kSendTtyioData, CompactText(body));
}

void Desk::Publish(const std::string& topic, const std::string& payload) {
  const bool sent = bus_.Publish(topic, payload);
  journal_.Add(Source::kBus, "to the daemon: " + topic + " " + PayloadText(payload) + Delivered(sent));
}

void Desk::NameDevice(const std::string& name) {
  Json::Value document;
  document[bs::kDevicename] = name;
  StoreSet(bs::kSysDeviceName.key, bs::StyledText(document));
  Publish(bs::kSysDeviceNameChanged, "");
}

void Desk::StoreSet(const std::string& document, const std::string& text) {
  const bool stored = store_client_.Set(document, text);
  journal_.Add(Source::kStore, document + (stored ? " is now " + PayloadText(text) : ": the store is away"));
}

void Desk::StoreDelete(const std::string& document) {
  journal_.Add(Source::kStore, document + (store_client_.Delete(document) ? " is deleted" : ": the store is away"));
}

void Desk::StoreShow(const std::string& document) {
  std::string text;
  const bool found = store_client_.Get(document, text);
  journal_.Add(Source::kStore, document + (found ? " holds " + PayloadText(text) : " is not in the store"));
}

void Desk::BeaconBehaves(BeaconManner manner, Loop::Milliseconds delay, const std::string& words) {
  beacon_.Behave(manner, delay);
  journal_.Add(Source::kBeacon, "the module's manner is now: " + words);
}

void Desk::PlugBeacon(bool plugged) {
  plugged ? beacon_.Plug() : beacon_.Unplug();
  journal_.Add(Source::kBeacon, plugged ? "the module is plugged in" : "the module is unplugged");
}

}  // namespace desk
