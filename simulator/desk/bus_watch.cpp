#include "desk/bus_watch.h"

#include <sodium.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "desk/recogniser.h"
#include "plain_words.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/parking_result.h"

namespace desk {
namespace {

namespace bs = businessserver;

constexpr size_t kMostTopics = 1000;

bool ReadRecord(const std::string& payload, bs::LX_Parking_Result_Param& record) {
  if (payload.size() != sizeof record) return false;
  memcpy(&record, payload.data(), sizeof record);
  return true;
}

std::string RecordText(const bs::LX_Parking_Result_Param& record) {
  std::string text;
  for (size_t i = 0; i < bs::kSpaces; ++i) {
    text += (i == 0 ? "" : " | ") + std::string("space ") + std::to_string(i + 1) + " " + SpaceText(record.spaces[i]);
  }
  return text;
}

// "plate1", "state1", "line1" and so on.
Facts RecordFacts(const bs::LX_Parking_Result_Param& record) {
  Facts facts;
  for (size_t i = 0; i < bs::kSpaces; ++i) {
    const auto& space = record.spaces[i];
    const std::string number = std::to_string(i + 1);
    facts.emplace_back("plate" + number, words::GbkToUtf8(bs::FieldText(space.plate)));
    facts.emplace_back("state" + number, words::SpaceStateName(space.space_status));
    facts.emplace_back("line" + number, std::to_string(space.occupy_line));
  }
  return facts;
}

bool DecodeBase64(const std::string& text, std::string& bytes) {
  std::vector<unsigned char> buffer(text.size() + 1);
  size_t size = 0;
  if (sodium_base642bin(buffer.data(), buffer.size(), text.data(), text.size(), nullptr, &size, nullptr,
                        sodium_base64_VARIANT_ORIGINAL) != 0) {
    return false;
  }
  bytes.assign(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(size));
  return true;
}

bool ParseObject(const std::string& payload, Json::Value& document) {
  return bs::ParseJson(payload, document) && document.isObject();
}

std::string TextOf(const Json::Value& value) { return value.isString() ? value.asString() : CompactText(value); }

// Base64 in a broadcast of received bytes, spelled out.
void AddSerialBytes(const Json::Value& document, Facts& facts) {
  const Json::Value& body = document[bs::kBody];
  if (document[bs::kType] != bs::kTtyioDataBro || !body.isObject() || !body[bs::kData].isString()) return;
  std::string bytes;
  if (!DecodeBase64(body[bs::kData].asString(), bytes)) return;
  facts.emplace_back("bytes", words::HexText(bytes.data(), bytes.size()));
  facts.emplace_back("text", words::Printable(bytes));
}

// "cm_dev.0.ip"
bool IsAddress(const std::string& name) {
  const std::string ending = std::string(".") + bs::kIp;
  return name.size() > ending.size() && name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
}

}  // namespace

std::string PayloadText(const std::string& payload) {
  bs::LX_Parking_Result_Param record;
  if (ReadRecord(payload, record)) return "result: " + RecordText(record);
  Json::Value document;
  return Shortened(bs::ParseJson(payload, document) ? CompactText(document) : payload);
}

void BusWatch::Handle(const BusMessage& message) {
  if (message.topic == kSignOfLifeTopic) {
    on_sign_of_life_();
  } else if (message.topic == bs::kBusBroadcastMessage) {
    HandleBroadcast(message);
  } else if (message.topic == bs::kBusSimulatorTrigger) {
    HandleRepublished(message);
  } else if (message.topic == bs::kBusRequestMessage || message.topic == bs::kBusExtRequestMessage) {
    HandleRequest(message);
  } else if (message.topic == kReplyTopic || response_topics_.count(message.topic) != 0) {
    HandleReply(message);
  } else {
    HandleOther(message);
  }
}

void BusWatch::HandleBroadcast(const BusMessage& message) {
  Json::Value document;
  if (!ParseObject(message.payload, document)) {
    journal_.Add(Source::kBroadcast, PayloadText(message.payload));
    return;
  }
  Facts body;
  if (document.isMember(bs::kBody)) AddDocumentFacts(document[bs::kBody], body);
  AddSerialBytes(document, body);
  const std::string type = TextOf(document[bs::kType]);
  Facts facts = {{bs::kType, type}};
  facts.insert(facts.end(), body.begin(), body.end());
  for (auto& [name, value] : body) {
    if (IsAddress(name)) value = words::AddressText(static_cast<uint32_t>(strtoul(value.c_str(), nullptr, 10)));
  }
  journal_.Add(Source::kBroadcast, type + " " + words::Printable(FactsText(body)), facts);
}

void BusWatch::HandleRepublished(const BusMessage& message) {
  bs::LX_Parking_Result_Param record;
  if (ReadRecord(message.payload, record)) {
    journal_.Add(Source::kRepublished, RecordText(record), RecordFacts(record));
  } else {
    journal_.Add(Source::kRepublished, std::to_string(message.payload.size()) + " bytes, which is no result record");
  }
}

void BusWatch::HandleRequest(const BusMessage& message) {
  const std::string topic = message.response_topic.empty() ? message.topic + "/reply" : message.response_topic;
  if (response_topics_.size() >= kMostTopics) response_topics_.clear();
  response_topics_.insert(topic);
  journal_.Add(Source::kRequest, PayloadText(message.payload) + "  (for " + words::Printable(topic) + ")");
}

void BusWatch::HandleReply(const BusMessage& message) {
  Facts facts;
  bs::LX_Parking_Result_Param record;
  Json::Value document;
  std::string text;
  if (ReadRecord(message.payload, record)) {
    facts = RecordFacts(record);
    facts.emplace_back("size", std::to_string(message.payload.size()));
    text = "result record: " + RecordText(record);
  } else if (ParseObject(message.payload, document)) {
    for (const char* key : {bs::kState, bs::kErrorMsg, bs::kType}) {
      if (document.isMember(key)) facts.emplace_back(key, TextOf(document[key]));
    }
    if (document.isMember(bs::kBody)) AddDocumentFacts(document[bs::kBody], facts);
    text = TextOf(document[bs::kState]) + " " + TextOf(document[bs::kErrorMsg]) + "  (" + TextOf(document[bs::kType]) +
           ")";
    if (document.isMember(bs::kBody)) text += " " + Shortened(CompactText(document[bs::kBody]));
  } else {
    text = PayloadText(message.payload);
  }
  if (message.topic != kReplyTopic) text += "  (for " + words::Printable(message.topic) + ")";
  journal_.Add(Source::kReply, text, facts);
}

void BusWatch::HandleOther(const BusMessage& message) {
  Facts facts = {{"topic", message.topic}};
  Json::Value document;
  if (ParseObject(message.payload, document)) AddDocumentFacts(document, facts);
  journal_.Add(Source::kBus, words::Printable(message.topic) + " " + PayloadText(message.payload), facts);
}

}  // namespace desk
