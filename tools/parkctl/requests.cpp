#include "requests.h"

#include <algorithm>
#include <iostream>

#include "console.h"
#include "contract/check.h"
#include "contract/schemas.h"
#include "plain_words.h"
#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "record_text.h"

namespace parkctl {

namespace bs = businessserver;

namespace {

constexpr int kDeviceSilent = 504;  // the relay's own answer for a daemon that gives none

std::string UnknownCommandHint(const RequestOptions& options) {
  const bool external = options.message_type == bs::kBusExtRequestMessage;
  const auto others = CommandNames(external ? bs::kBusRequestMessage : bs::kBusExtRequestMessage);
  if (std::find(others.begin(), others.end(), options.command) != others.end()) {
    return std::string("it goes the other way: parkctl ") + (external ? "request " : "external ") + options.command;
  }
  const std::string nearest = contract::Nearest(options.command, CommandNames(options.message_type));
  return nearest.empty() ? "--help lists the commands" : "did you mean " + nearest + "?";
}

std::string Hint(int state, const RequestOptions& options, size_t request_size) {
  switch (state) {
    case bs::kRequestDataError.state:
      return "the request is " + std::to_string(request_size) + " bytes, the device takes 1 to " +
             std::to_string(bs::kMaxRequestSize);
    case bs::kErrorType.state:
      return UnknownCommandHint(options);
    case bs::kSetError.state:
      return "the value was refused or could not be stored or applied; the daemon's log says why";
    case bs::kExternalControlOff.state:
      return std::string("switch it on: \"") + bs::kExternalcontrolEnable + "\" 1 with parkctl request " +
             bs::kSetParkingColorCfg;
    default:
      return "";
  }
}

Json::Value RequestDocument(const RequestOptions& options) {
  Json::Value document;
  document[bs::kType] = options.command;
  if (!options.body.empty()) document[bs::kBody] = ParseUserJson(ReadSource(options.body), "the body");
  return document;
}

// A relay answers some commands itself.
std::string SiteSchema(const RequestOptions& options) {
  const std::string name = "site/" + options.command;
  const bool is_command = !options.device.device.empty() && contract::Has(name) &&
                          contract::Schema(name)["properties"]["type"]["const"] == Json::Value(options.command);
  return is_command ? name : "";
}

// False when something is wrong with it, said on standard error.
bool IsSound(const RequestOptions& options, const Json::Value& request) {
  if (const std::string schema = SiteSchema(options); !schema.empty()) {
    return SayFaults(contract::Check(schema, request));
  }
  if (bs::FindCommand(options.message_type, options.command) != nullptr) {
    return SayFaults(contract::Check("requests/" + options.command, request));
  }
  const std::string fault = '"' + options.command + "\" is no command of this path, " + UnknownCommandHint(options);
  return SayFaults({{bs::kType, words::Printable(fault)}});
}

// State and text of the reply on standard error, its body on standard output: the body can go straight into a file.
int ShowReply(const std::string& reply, const RequestOptions& options, size_t request_size) {
  bs::LX_Parking_Result_Param record;
  std::string problem;
  if (options.command == bs::kGetLatestIvsresult && ReadRecord(reply, record, problem)) {
    std::cout << RecordText(record);
    return kDone;
  }
  Json::Value document;
  if (!bs::ParseJson(reply, document) || !document.isObject() || !document[bs::kState].isInt()) {
    Note("the reply is none that this tool knows, " + std::to_string(reply.size()) +
         " bytes: " + words::Printable(reply));
    return kRefused;
  }
  const int state = document[bs::kState].asInt();
  const Json::Value& text = document[bs::kErrorMsg];
  const std::string error = text.isString() ? text.asString() : "";
  if (const std::string refusal = RelayRefusal(state, error, options.command); !refusal.empty()) {
    Note(refusal);
    return bs::IsReadingName(options.command) ? kNoAnswer : kRefused;
  }
  const std::string hint = Hint(state, options, request_size);
  std::cerr << state << " " << words::Printable(error) << (hint.empty() ? "" : "\n  " + hint) << std::endl;
  if (document.isMember(bs::kBody)) std::cout << IndentedText(document[bs::kBody]) << "\n";
  if (state == kDeviceSilent) return kNoAnswer;
  return state == bs::kAllDone.state ? kDone : kRefused;
}

// Sends and waits; without an answer says why.
int Ask(const RequestOptions& options, const std::string& request, std::string& reply) {
  const std::chrono::milliseconds wait(static_cast<long>(options.timeout_s * 1000));
  DeviceLink device(options.device);
  return device.Explain(device.Ask(options.message_type, request, wait, reply), options.message_type);
}

}  // namespace

std::vector<std::string> CommandNames(const std::string& message_type) {
  std::vector<std::string> names;
  for (const bs::Command& command : bs::kCommands) {
    if (command.path == message_type) names.emplace_back(command.name);
  }
  return names;
}

int RunRequest(const RequestOptions& options) {
  const Json::Value document = RequestDocument(options);
  if (!options.force && !IsSound(options, document)) return kMisused;
  const std::string request = words::CompactText(document);  // short: the device takes no long requests
  std::string reply;
  const int status = Ask(options, request, reply);
  if (status != kDone) return status;
  if (!options.raw) return ShowReply(reply, options, request.size());
  std::cout << reply << std::flush;
  Json::Value answer;
  if (!bs::ParseJson(reply, answer) || !answer.isObject()) return kDone;  // a record
  const Json::Value& state = answer[bs::kState];
  const Json::Value& error = answer[bs::kErrorMsg];
  const bool from_relay =
      state == Json::Value(kDeviceSilent) ||
      (state.isInt() && error.isString() && !RelayRefusal(state.asInt(), error.asString(), options.command).empty() &&
       bs::IsReadingName(options.command));
  return from_relay ? kNoAnswer : state == Json::Value(bs::kAllDone.state) ? kDone : kRefused;
}

int RunLatest(const LatestOptions& options) {
  RequestOptions request;
  request.device = options.device;
  request.timeout_s = options.timeout_s;
  request.message_type = bs::kBusRequestMessage;
  request.command = bs::kGetLatestIvsresult;
  if (!options.json) return RunRequest(request);

  std::string reply;
  const int status = Ask(request, words::CompactText(RequestDocument(request)), reply);
  if (status != kDone) return status;
  bs::LX_Parking_Result_Param record;
  std::string problem;
  if (!ReadRecord(reply, record, problem)) return ShowReply(reply, request, 0);
  std::cout << IndentedText(RecordJson(record)) << "\n";
  return kDone;
}

}  // namespace parkctl
