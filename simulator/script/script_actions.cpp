// The words that make something happen.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "desk/desk.h"
#include "plain_words.h"
#include "script/script_words.h"

namespace desk {
namespace {

using Action = std::function<void(Desk&)>;
using Kind = Statement::Kind;

// The rest of a line about a space: fields by name, and "rect" for the other type of result.
struct SpaceWords {
  Desk::Fields fields;
  bool change = false;
};

SpaceWords ParseSpaceWords(Words& words) {
  SpaceWords parsed;
  while (!words.AtEnd()) {
    if (words.Take("rect")) {
      parsed.change = true;
      continue;
    }
    const std::string field = words.Next("a field");
    if (!Recogniser::IsField(field)) {
      throw ScriptMistake("\"" + field + "\" is no field of a result; there are " + Recogniser::FieldNames());
    }
    const std::string value = words.Next("the value of " + field);
    std::string problem;
    Recogniser trial;
    if (!trial.SetField(1, field, value, problem)) throw ScriptMistake(problem);
    parsed.fields.emplace_back(field, value);
  }
  return parsed;
}

Action ParseArrives(Words& words) {
  const size_t space = words.Space();
  SpaceWords rest = ParseSpaceWords(words);
  return [=](Desk& desk) { desk.CarArrives(space, "", rest.fields, rest.change); };
}

Action ParseLeaves(Words& words) {
  const size_t space = words.Space();
  SpaceWords rest = ParseSpaceWords(words);
  return [=](Desk& desk) { desk.CarLeaves(space, rest.fields, rest.change); };
}

Action ParseCrosses(Words& words) {
  const size_t space = words.Space();
  const bool on = words.Take("on");
  const bool off = !on && words.Take("off");
  const int value = on ? 1 : off ? 0 : static_cast<int>(words.Number("on, off or a line value"));
  SpaceWords rest = ParseSpaceWords(words);
  return [=](Desk& desk) { desk.CrossesLine(space, value, rest.fields, rest.change); };
}

Action ParseSees(Words& words) {
  const size_t space = words.Space();
  SpaceWords rest = ParseSpaceWords(words);
  return [=](Desk& desk) { desk.Sees(space, rest.fields, rest.change); };
}

Action ParseRecord(Words& words) {
  const uint32_t bytes = words.Number("the number of bytes");
  words.Require("bytes");
  return [=](Desk& desk) { desk.PublishRecordOf(bytes); };
}

Action ParseNeighbour(Words& words) {
  Neighbour neighbour;
  neighbour.ip = words.Address();
  if (words.Take("silent")) return [=](Desk& desk) { desk.NeighbourFallsSilent(neighbour.ip); };
  const std::string position = words.Next("own, left, right, front or silent");
  if (!words::ParsePosition(position, neighbour.position)) throw ScriptMistake("\"" + position + "\" is no position");
  words.Require("total");
  neighbour.total = words.Number("the number of spaces");
  words.Require("free");
  neighbour.free = words.Number("the number of free spaces");
  while (words.Take("reports")) {
    ReportedDevice device{};
    device.ip = words.Address();
    words.Require("total");
    device.total = words.Number("the number of spaces");
    words.Require("free");
    device.free = words.Number("the number of free spaces");
    neighbour.reports.push_back(device);
  }
  return [=](Desk& desk) { desk.NeighbourPushes(neighbour); };
}

// "command" and, to the end of the line, its body.
template <void (Desk::*Send)(const std::string&, const std::string&)>
Action ParseEnvelope(Words& words) {
  const std::string command = words.Next("a command");
  const std::string body = words.Rest();
  return [=](Desk& desk) { (desk.*Send)(command, body); };
}

Action ParseSerialIn(Words& words) {
  const std::string bytes = words.Take("text") ? words.Rest() : words.Hex();
  return [=](Desk& desk) { desk.SerialIn(bytes); };
}

Action ParseSerialSend(Words& words) {
  const std::string bytes = words.Take("text") ? words.Rest() : words.Hex();
  return [=](Desk& desk) { desk.SendSerialData(bytes); };
}

Action ParseDeviceName(Words& words) {
  const std::string name = words.Next("the name");
  return [=](Desk& desk) { desk.NameDevice(name); };
}

Action ParseStoreDelete(Words& words) {
  const std::string document = words.Next("the document's key");
  return [=](Desk& desk) { desk.StoreDelete(document); };
}

Action ParseStoreGet(Words& words) {
  const std::string document = words.Next("the document's key");
  return [=](Desk& desk) { desk.StoreShow(document); };
}

template <void (*Do)(Desk&, Process&)>
Action ParseProcess(Words& words) {
  const std::string name = words.Next("broker, store, daemon or relay");
  if (name != "broker" && name != "store" && name != "daemon" && name != "relay") {
    throw ScriptMistake("\"" + name + "\" is none of broker, store, daemon, relay");
  }
  return [=](Desk& desk) { Do(desk, *desk.FindProcess(name)); };
}

void DoKill(Desk& desk, Process& process) { desk.KillProcess(process); }
void DoStop(Desk& desk, Process& process) { desk.StopProcess(process); }
void DoStart(Desk& desk, Process& process) { desk.StartProcess(process); }
void DoFreeze(Desk& desk, Process& process) {
  process.Freeze();
  desk.journal().Add(Source::kDesk, process.name() + " is frozen");
}
void DoThaw(Desk& desk, Process& process) {
  process.Thaw();
  desk.journal().Add(Source::kDesk, process.name() + " goes on");
}

Action ParseBeacon(Words& words) {
  const std::string word = words.Next("what the module does");
  if (word == "unplugged" || word == "plugged") return [=](Desk& desk) { desk.PlugBeacon(word == "plugged"); };
  const auto* const manner = std::find_if(std::begin(kBeaconManners), std::end(kBeaconManners),
                                          [&](const BeaconMannerName& row) { return word == row.word; });
  if (manner == std::end(kBeaconManners)) throw ScriptMistake("no module is \"" + word + "\"");
  Loop::Milliseconds delay(0);
  if (manner->manner == BeaconManner::kSlow) delay = words.Duration();
  const std::string text = delay.count() == 0 ? word : word + " by " + std::to_string(delay.count()) + " ms";
  return [=](Desk& desk) { desk.BeaconBehaves(manner->manner, delay, text); };
}

Action ParseSay(Words& words) {
  const std::string text = words.Rest();
  return [=](Desk& desk) { desk.journal().Add(Source::kScript, text); };
}

// clang-format off
constexpr ActionWords kActions[] = {
    // begins with    usage                                                              what it counts as  read by
    {"car arrives",   "car arrives space N [plate TEXT] [FIELD VALUE ...] [rect]",        Kind::kAction, ParseArrives},
    {"car leaves",    "car leaves space N [FIELD VALUE ...] [rect]",                      Kind::kAction, ParseLeaves},
    {"crosses line",  "crosses line space N on|off|VALUE [FIELD VALUE ...] [rect]",       Kind::kAction, ParseCrosses},
    {"sees",          "sees space N [FIELD VALUE ...] [rect]",                            Kind::kAction, ParseSees},
    {"record of",     "record of N bytes",                                                Kind::kAction, ParseRecord},
    {"neighbour",     "neighbour ADDRESS own|left|right|front total N free M "
                      "[reports ADDRESS total N free M ...], or neighbour ADDRESS silent", Kind::kAction, ParseNeighbour},
    {"request",       "request COMMAND [BODY]",                                           Kind::kAction, ParseEnvelope<&Desk::Request>},
    {"external",      "external COMMAND [BODY]",                                          Kind::kAction, ParseEnvelope<&Desk::ExternalRequest>},
    {"listen",        "listen TYPE [BODY]",                                               Kind::kAction, ParseEnvelope<&Desk::Listen>},
    {"publish",       "publish TOPIC [PAYLOAD]",                                          Kind::kAction, ParseEnvelope<&Desk::Publish>},
    {"serial in",     "serial in HEX, or serial in text TEXT",                            Kind::kAction, ParseSerialIn},
    {"serial send",   "serial send HEX, or serial send text TEXT",                        Kind::kAction, ParseSerialSend},
    {"device name",   "device name NAME",                                                 Kind::kAction, ParseDeviceName},
    {"store set",     "store set KEY TEXT",                                               Kind::kAction, ParseEnvelope<&Desk::StoreSet>},
    {"store delete",  "store delete KEY",                                                 Kind::kAction, ParseStoreDelete},
    {"store get",     "store get KEY",                                                    Kind::kQuiet,  ParseStoreGet},
    {"kill",          "kill broker|store|daemon|relay",                                   Kind::kAction, ParseProcess<DoKill>},
    {"stop",          "stop broker|store|daemon|relay",                                   Kind::kAction, ParseProcess<DoStop>},
    {"start",         "start broker|store|daemon|relay",                                  Kind::kAction, ParseProcess<DoStart>},
    {"freeze",        "freeze broker|store|daemon|relay",                                 Kind::kAction, ParseProcess<DoFreeze>},
    {"thaw",          "thaw broker|store|daemon|relay",                                   Kind::kAction, ParseProcess<DoThaw>},
    {"beacon",        "beacon prompt|silent|slow N ms|split|noisy|garbage|unplugged|plugged", Kind::kAction, ParseBeacon},
    {"say",           "say TEXT",                                                         Kind::kQuiet,  ParseSay},
};
// clang-format on

}  // namespace

const ActionWords* TakeActionWords(Words& words) { return TakeRow(kActions, words); }

std::string KnownActions() {
  std::string known = "expect, wait";
  for (const auto& row : kActions) known += std::string(", ") + row.words;
  return known;
}

}  // namespace desk
