#include "config_device.h"

#include <cstdlib>
#include <iterator>
#include <thread>
#include <utility>

#include "bus_account.h"
#include "change_guard_service.h"
#include "console.h"
#include "contract/schemas.h"
#include "json_words.h"
#include "plain_words.h"
#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "relay/change_guard.h"

namespace parkctl {

namespace bs = businessserver;

namespace {

constexpr std::chrono::seconds kPatience{6};        // a device that is busy with its beacon module answers in time
constexpr std::chrono::seconds kGuardPatience{30};  // a change is made and read back before it is answered
constexpr std::chrono::seconds kGuardReturns{5};    // to a broker that started again
constexpr std::chrono::milliseconds kGuardPause{100};
constexpr char kRelayKey[] = "relay_value";

const bs::StoredDocument& DocumentOf(const config::Part& part) {
  for (const bs::StoredDocument* document : bs::kStoredDocuments) {
    if (DocumentName(*document) == part.name) return *document;
  }
  return kRelayValue;
}

Json::Value DefaultOf(const config::Part& part) {
  const Json::Value& schema = contract::Schema("documents/" + part.name);
  return schema.get("default", Json::Value());
}

Reply ReadReply(Outcome outcome, const std::string& text) {
  Reply reply;
  reply.outcome = outcome;
  if (outcome != Outcome::kDelivered) return reply;
  Json::Value document;
  if (!bs::ParseJson(text, document) || !document.isObject() || !document[bs::kState].isInt()) {
    reply.error_msg = "the answer cannot be read";
    return reply;
  }
  reply.state = document[bs::kState].asInt();
  reply.error_msg = document[bs::kErrorMsg].isString() ? document[bs::kErrorMsg].asString() : "";
  reply.body = document[bs::kBody];
  return reply;
}

}  // namespace

const bs::StoredDocument kRelayValue = {kRelayKey, sizeof kRelayKey - 1, bs::kNoDefault};

ConfigDevice::ConfigDevice(const ConfigDeviceOptions& options)
    : options_(options), remote_(!options.device.device.empty()), link_(std::in_place, options.device) {
  if (!remote_) store_.emplace(options.store_port);
}

std::string ConfigDevice::FileName() const {
  if (!remote_) return "this-device";
  const char* const usual = std::getenv("PARK_SITE");
  std::string site = options_.device.site.address.empty() && usual != nullptr ? usual : options_.device.site.address;
  for (char& c : site) {
    if (c == '/' || c == ':') c = '_';
  }
  return site + "." + options_.device.device;
}

Reply ConfigDevice::Ask(const std::string& topic, const Json::Value& request) {
  std::string answer;
  const auto patience = topic == kChangeRequestMessage ? kGuardPatience : kPatience;
  const std::string text = words::CompactText(request);  // a device takes 2047 bytes
  if (!link_) link_.emplace(options_.device);
  Outcome outcome = link_->Ask(topic, text, patience, answer);
  if (outcome == Outcome::kNoBroker) {  // given up by the broker while a person thought, or started again
    link_.emplace(options_.device);
    outcome = link_->Ask(topic, text, patience, answer);
  }
  return ReadReply(outcome, answer);
}

bool ConfigDevice::ChangeWasLeft() const {
  std::string text;
  return store_ && !ChangeGuardRuns() && store_->Read(relay::kDeviceChange, text) == Store::Found::kYes;
}

bool ConfigDevice::SiteTriesChange() const {
  std::string text;
  return store_ && store_->Read(relay::kSiteChange, text) == Store::Found::kYes;
}

int ConfigDevice::Explain(const Reply& reply) const { return link_->Explain(reply.outcome, bs::kBusRequestMessage); }

int ConfigDevice::ExplainAway(const Reply& reply) const {
  if (store_) return store_->Explain();
  Note(words::Printable(reply.error_msg));
  return kNoAnswer;
}

std::optional<Json::Value> ConfigDevice::ReadDocument(const config::Part& part) {
  if (remote_) {
    const Reply reply = AskDevice(part.reading_command);
    if (reply.Done()) return reply.body;
    if (part.reading_command == bs::kGetBt && reply.Came() && reply.state == bs::kSetError.state) {
      return Json::Value();  // there is no beacon module, or it keeps silent
    }
    const std::string refusal = RelayRefusal(reply.state, reply.error_msg, part.reading_command);
    if (!reply.Came()) {
      Explain(reply);
    } else {
      Note(!refusal.empty()
               ? refusal
               : part.reading_command + ": " + std::to_string(reply.state) + " " + words::Printable(reply.error_msg));
    }
    return std::nullopt;
  }
  // The daemon answers with a default while the store is away: the store itself is asked.
  std::string text;
  const Store::Found found = store_->Read(DocumentOf(part), text);
  if (found == Store::Found::kUnreachable) {
    store_->Explain();
    return std::nullopt;
  }
  Json::Value document;
  if (found == Store::Found::kNo || !bs::ParseJson(text, document)) return DefaultOf(part);
  return document;
}

std::optional<config::Configuration> ConfigDevice::Read() {
  config::Configuration configuration;
  // The relay reads the store itself, and says when that is away: asked first and last, it vouches for the rest.
  const config::Part& relay = *config::FindPart(config::kRelayDocument);
  if (remote_ && !ReadDocument(relay)) return std::nullopt;
  for (const config::Part& part : config::Parts()) {
    std::optional<Json::Value> value = ReadDocument(part);
    if (!value) return std::nullopt;
    if (value->isObject() && !value->empty()) configuration.documents.push_back({&part, std::move(*value)});
  }
  configuration.device = config::DeviceNameIn(configuration);
  return configuration;
}

Reply ConfigDevice::SetRelayDocument(const Json::Value& value) {
  const std::string text = bs::StyledText(value);
  const bool stored = value.isNull() ? store_->Erase(kRelayValue) : store_->Write(kRelayValue, text);
  Reply reply;
  reply.outcome = Outcome::kDelivered;
  reply.state = stored ? bs::kAllDone.state : bs::kSetError.state;
  reply.error_msg = stored ? bs::kAllDone.error_msg : "the store did not take it";
  if (!stored) return reply;
  // The relay reads its document again when anybody speaks here.
  const bool guards = options_.device.role == std::string(platform::kConfigGuardRole);
  DeviceBus bus(options_.device.bus_port, guards ? platform::kConfigGuardRole : platform::kFrontEndRole);
  if (bus.Connect()) bus.Send(bs::kHttpBroadcastMessageRoot, R"({"type": "relay_document_changed"})");
  return reply;
}

Reply ConfigDevice::AskDevice(const std::string& command) {
  Json::Value request;
  request[bs::kType] = command;
  return Ask(bs::kBusRequestMessage, request);
}

Reply ConfigDevice::Set(const config::Part& part, const Json::Value& value) {
  if (!remote_ && part.name == config::kRelayDocument) return SetRelayDocument(value);
  return Ask(bs::kBusRequestMessage, config::StoringRequest(part, value));
}

Reply ConfigDevice::AskGuard(const Json::Value& request) {
  if (remote_) return Ask(bs::kBusRequestMessage, request);
  Reply reply;
  reply.outcome = Outcome::kNobodyListens;
  const auto end = std::chrono::steady_clock::now() + kGuardReturns;
  while (ChangeGuardRuns()) {
    reply = Ask(kChangeRequestMessage, request);
    if (reply.outcome != Outcome::kNobodyListens || std::chrono::steady_clock::now() >= end) break;
    std::this_thread::sleep_for(kGuardPause);
  }
  return reply;
}

}  // namespace parkctl
