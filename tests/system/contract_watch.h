// The contract as a witness of other tests: it sees every message on a device's bus and every stored document, and
// fails the test for what the daemon says, answers or stores against its schema. What a test asked for against the
// contract itself is noted, and what follows from it left alone.
#pragma once

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "contract/check.h"
#include "contract/schemas.h"
#include "desk/bus_client.h"
#include "desk/store_client.h"
#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/parking_result.h"

class ContractWatch {
 public:
  // Of the device whose programs run in that network; without: where the test does.
  explicit ContractWatch(desk::Loop& loop, const desk::Network* network = nullptr) : client_(loop, network) {
    client_.OnMessage([this](const desk::BusMessage& message) { Expect(message.topic, message.payload); });
  }

  // For what comes another way than from the device's bus: a hub's messages.
  void Expect(const std::string& topic, const std::string& payload) {
    const std::string fault = See(topic, payload);
    EXPECT_EQ(fault, "") << topic << "\n" << payload;
  }

  void Start() { client_.Start(); }
  bool connected() const { return client_.connected(); }
  int seen() const { return seen_; }

  // What a test wrote on purpose: "documents/bus_dev_pos_value".
  void Ignore(const std::string& schema) { ignored_.insert(schema); }

  // The faults of what the device says, in lines; nothing for what others say, which is only noted.
  std::string See(const std::string& topic, const std::string& payload) {
    namespace bs = businessserver;
    if (topic == bs::kBusSimulatorTrigger) return SizeFault(payload);
    if (topic.compare(0, 5, "park/") == 0 && payload.empty()) return "";  // cleared
    Json::Value document;
    const bool object = bs::ParseJson(payload, document) && document.isObject();
    if (topic == bs::kBusRequestMessage || topic == bs::kBusExtRequestMessage) {
      if (object && document["type"].isString()) NoteRequest(document["type"].asString(), document);
      return "";
    }
    if (topic == bs::kBusBroadcastMessage || topic == bs::kHttpRequestMessageRoot) {
      const std::string schema = object ? MessageSchema(topic, document["type"]) : "";
      return schema.empty() ? "no such message" : Faults(schema, document);
    }
    if (topic.compare(0, 5, "park/") == 0) {
      const size_t branch = topic.find('/', 5) + 1;
      const std::string schema = "site/" + topic.substr(branch, topic.find('/', branch) - branch);
      if (schema == "site/counts" || schema == "site/health") return Faults(schema, document);
    }
    const bool reply = object && document.isMember("state") && document.isMember("error_msg");
    return reply ? Faults(ReplySchema(document, topic.compare(0, 5, "park/") == 0), document) : "";
  }

  // Every document that is stored.
  void LookIntoStore(desk::StoreClient& store) {
    for (const std::string& schema : contract::Names("documents")) {
      std::string text;
      if (!store.Get(schema.substr(schema.find('/') + 1), text)) continue;
      Json::Value document;
      const bool readable = businessserver::ParseJson(text, document);
      EXPECT_EQ(readable || ignored_.count(schema) != 0 ? Faults(schema, document) : "no JSON", "") << schema << text;
    }
  }

 private:
  static std::string SizeFault(const std::string& record) {
    return record.size() == sizeof(businessserver::LX_Parking_Result_Param) ? "" : "no record";
  }

  static std::string MessageSchema(const std::string& topic, const Json::Value& type) {
    for (const std::string& name : contract::Names("messages")) {
      const Json::Value& schema = contract::Schema(name);
      if (schema["x-topic"] == topic && schema["properties"]["type"]["const"] == type) return name;
    }
    return "";
  }

  static std::string ReplySchema(const Json::Value& reply, bool through_relay) {
    const std::string type = reply["type"].isString() ? reply["type"].asString() : "";
    const int state = reply["state"].isInt() ? reply["state"].asInt() : 0;
    if (contract::Has("site/" + type + "_reply")) return "site/" + type + "_reply";
    if (through_relay && (state == 400 || state >= 500)) return "site/remote_refusal";
    if (through_relay && state == 403 && reply["error_msg"] != businessserver::kErrorType.error_msg) {
      return "site/remote_refusal";
    }
    const std::string own = "replies/" + type;
    return state >= 401 && state <= 403 ? "messages/not_understood" : contract::Has(own) ? own : "parts/reply";
  }

  std::string Faults(const std::string& schema, const Json::Value& document) {
    ++seen_;
    if (ignored_.count(schema) != 0) return "";
    std::string text;
    for (const contract::Fault& fault : contract::Check(schema, document)) text += schema + ": " + fault.Text() + "\n";
    return text;
  }

  // A request that is not valid may have the device store, answer and show what is not valid either.
  void NoteRequest(const std::string& command, const Json::Value& request) {
    const std::string schema = "requests/" + command;
    if (!contract::Has(schema) || contract::Check(schema, request).empty()) return;
    const std::string document = contract::Schema(schema)["x-document"].asString();
    if (!document.empty()) Ignore("documents/" + document);
    for (const std::string& reader : contract::Names("requests")) {
      if (contract::Schema(reader)["x-document"] == document) Ignore("replies" + reader.substr(reader.find('/')));
    }
    for (const char* lamp : {"set_dev_led", "check_dev", "set_parking_color_cfg"}) {
      if (command != lamp) continue;
      Ignore("messages/ledcolor_changed");
      Ignore("replies/get_device_frame_status");
    }
    if (command == "external_control_framestatus") {
      Ignore("documents/device_controled_log_value");
      Ignore("replies/quary_controled_log");
    }
  }

  desk::BusClient client_;
  std::set<std::string> ignored_;
  int seen_ = 0;
};
