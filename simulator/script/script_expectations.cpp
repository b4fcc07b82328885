// The words that say what must be seen.
#include <cctype>

#include "desk/desk.h"
#include "plain_words.h"
#include "protocol/json_text.h"
#include "script/script_words.h"

namespace desk {
namespace {

using State = std::function<bool(Desk& desk, std::string& seen)>;

void ExpectLed(Words& words, Expectation& expectation) {
  std::string lines;
  if (words.Take("off")) {
    lines = "none";
  } else if (words.Take("all")) {
    lines = "1+2+3";
  } else {
    if (!words.Take("line")) words.Require("lines");
    lines = words.Next("the lines, like 1+3");
  }
  expectation.state = [lines](Desk& desk, std::string& seen) {
    seen = words::LedRegisterText(desk.board().LedData());
    return LedLines(desk.board().LedData()) == lines;
  };
}

void ExpectEvent(Words& words, Expectation& expectation, Source source, Facts wanted) {
  expectation.source = source;
  expectation.wanted = std::move(wanted);
  const Facts more = words.FactsToCompare();
  expectation.wanted.insert(expectation.wanted.end(), more.begin(), more.end());
}

void ExpectBroadcast(Words& words, Expectation& expectation) {
  const std::string type = words.Next("the broadcast's type");
  ExpectEvent(words, expectation, Source::kBroadcast, {{"type", type}});
}

void ExpectReply(Words& words, Expectation& expectation) {
  if (words.Take("record")) return ExpectEvent(words, expectation, Source::kReply, {{"size", "968"}});
  const std::string state = std::to_string(words.Number("the reply's state"));
  ExpectEvent(words, expectation, Source::kReply, {{"state", state}});
}

void ExpectRepublished(Words& words, Expectation& expectation) {
  ExpectEvent(words, expectation, Source::kRepublished, {});
}

void ExpectBus(Words& words, Expectation& expectation) {
  const std::string topic = words.Next("the topic");
  ExpectEvent(words, expectation, Source::kBus, {{"topic", topic}});
}

// Bytes run to "within" or "for", when there is one.
std::string HexUpToLimit(Words& words) {
  std::string text;
  while (!words.AtEnd() && words.Peek() != "within" && words.Peek() != "for") text += words.Next("") + " ";
  return words::HexText(Words(text).Hex().data(), Words(text).Hex().size());
}

void ExpectSerial(Words& words, Expectation& expectation) {
  if (words.Take("bytes")) {
    expectation.source = Source::kSerialOut;
    expectation.wanted = {{"bytes", HexUpToLimit(words)}};
    return;
  }
  if (words.AtEnd() || words.Peek() == "within" || words.Peek() == "for") {
    return ExpectEvent(words, expectation, Source::kSerialOut, {});
  }
  const std::string kind = words.Next("the kind of frame");
  if (kind != "frame" && kind != "display" && kind != "relay" && kind != "unknown") {
    throw ScriptMistake("\"" + kind + "\" is none of frame, display, relay, unknown, bytes");
  }
  ExpectEvent(words, expectation, Source::kSerialOut, {{"kind", kind}});
}

void ExpectDisplay(Words& words, Expectation& expectation) {
  const std::string name = words.Next("front, left or right");
  if (name != "front" && name != "left" && name != "right") throw ScriptMistake("there is no display \"" + name + "\"");
  const std::string digits = words.Next("the number that it shows, or truth");
  if (digits != "truth" && digits.find_first_not_of("0123456789") != std::string::npos) {
    throw ScriptMistake("a display shows a number, or truth on a site, not \"" + digits + "\"");
  }
  expectation.of_site = digits == "truth";
  expectation.state = [name, digits](Desk& desk, std::string& seen) {
    std::string shown;
    for (const auto& display : desk.serial().displays()) {
      if (name == display.name) shown = display.digits;
    }
    const std::string wanted = digits == "truth" ? desk.TruthOf(name) : digits;
    seen = (shown.empty() ? "nothing yet" : shown) + (digits == "truth" ? ", the truth is " + wanted : "");
    return shown == wanted;
  };
}

struct BeaconWord {
  const char* word;
  std::string (*value)(const BeaconState&);
};
const BeaconWord kBeaconWords[] = {
    {"name", [](const BeaconState& state) { return words::Printable(state.name); }},
    {"uuid", [](const BeaconState& state) { return words::Printable(state.uuid); }},
    {"major", [](const BeaconState& state) { return std::to_string(state.major); }},
    {"minor", [](const BeaconState& state) { return std::to_string(state.minor); }},
    {"period", [](const BeaconState& state) { return std::to_string(state.period); }},
    {"power", [](const BeaconState& state) { return std::to_string(state.send_power); }},
    {"measured", [](const BeaconState& state) { return std::to_string(state.measured_power); }},
};

void ExpectBeacon(Words& words, Expectation& expectation) {
  const std::string word = words.Next("what of the beacon");
  if (word == "command") {
    return ExpectEvent(words, expectation, Source::kBeacon, {{"command", words.Next("the command's text")}});
  }
  for (const auto& row : kBeaconWords) {
    if (word != row.word) continue;
    const std::string wanted = words.Next("its value");
    const auto value = row.value;
    expectation.state = [wanted, value](Desk& desk, std::string& seen) {
      seen = value(desk.beacon().state());
      return seen == wanted;
    };
    return;
  }
  throw ScriptMistake("\"" + word + "\" is none of name, uuid, major, minor, period, power, measured, command");
}

bool DocumentHolds(const std::string& text, const Facts& wanted) {
  Json::Value document;
  if (!businessserver::ParseJson(text, document)) return false;
  Facts facts;
  AddDocumentFacts(document, facts);
  for (const auto& [name, value] : wanted) {
    const std::string* found = FindFact(facts, name);
    if (found == nullptr || *found != value) return false;
  }
  return true;
}

void ExpectStore(Words& words, Expectation& expectation) {
  const std::string key = words.Next("up, down or a document's key");
  if (key == "up" || key == "down") {
    expectation.state = [key](Desk& desk, std::string& seen) {
      seen = desk.store_client().Ping() ? "up" : "down";
      return seen == key;
    };
    return;
  }
  const bool absent = words.Take("absent");
  const Facts wanted = words.FactsToCompare();
  expectation.state = [=](Desk& desk, std::string& seen) {
    std::string text;
    const bool found = desk.store_client().Get(key, text);
    seen = found ? PayloadText(text) : "no such document";
    return absent ? !found : found && DocumentHolds(text, wanted);
  };
}

State ProcessState(const std::string& name, const std::string& wanted) {
  return [=](Desk& desk, std::string& seen) {
    seen = desk.FindProcess(name)->running() ? "up" : "down";
    if (seen == "up" && wanted == "ready" && desk.ready()) seen = "ready";
    return seen == wanted;
  };
}

void ExpectDaemon(Words& words, Expectation& expectation) {
  const std::string wanted = words.Next("up, down or ready");
  if (wanted != "up" && wanted != "down" && wanted != "ready") throw ScriptMistake("up, down or ready was expected");
  expectation.state = ProcessState("daemon", wanted);
}

void ExpectRelay(Words& words, Expectation& expectation) {
  const std::string wanted = words.Next("up or down");
  if (wanted != "up" && wanted != "down") throw ScriptMistake("up or down was expected");
  expectation.state = ProcessState("relay", wanted);
}

void ExpectBroker(Words& words, Expectation& expectation) {
  const std::string wanted = words.Next("up or down");
  if (wanted != "up" && wanted != "down") throw ScriptMistake("up or down was expected");
  expectation.state = ProcessState("broker", wanted);
}

void ExpectLog(Words& words, Expectation& expectation) {
  expectation.in_log = true;
  expectation.wanted = {{"line", words.Next("a part of the line, in double quotes")}};
}

struct ExpectationWord {
  const char* word;
  void (*parse)(Words& words, Expectation& expectation);
};
constexpr ExpectationWord kExpectations[] = {
    {"led", ExpectLed},         {"broadcast", ExpectBroadcast},     {"reply", ExpectReply},   {"serial", ExpectSerial},
    {"display", ExpectDisplay}, {"republished", ExpectRepublished}, {"beacon", ExpectBeacon}, {"store", ExpectStore},
    {"bus", ExpectBus},         {"daemon", ExpectDaemon},           {"broker", ExpectBroker}, {"log", ExpectLog},
    {"relay", ExpectRelay},
};

}  // namespace

Expectation ParseExpectation(Words& words) {
  constexpr Loop::Milliseconds kAbsenceLimit(1000);
  Expectation expectation;
  expectation.absent = words.Take("no");
  if (expectation.absent) expectation.limit = kAbsenceLimit;
  expectation.next = words.Take("next");
  const std::string word = words.Next("what to expect");
  bool known = false;
  std::string words_known;
  for (const auto& row : kExpectations) {
    words_known += std::string(words_known.empty() ? "" : ", ") + row.word;
    if (word != row.word) continue;
    known = true;
    row.parse(words, expectation);
  }
  if (!known) throw ScriptMistake("nothing can be expected of \"" + word + "\"; there are " + words_known);
  if (expectation.next && (expectation.absent || expectation.state || expectation.in_log)) {
    throw ScriptMistake("\"next\" is for events on the bus and the lines: they follow one another");
  }
  if (words.Take(expectation.absent ? "for" : "within")) expectation.limit = words.Duration();
  words.RequireEnd();
  return expectation;
}

}  // namespace desk
