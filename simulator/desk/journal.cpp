#include "desk/journal.h"

#include "plain_words.h"

namespace desk {
namespace {

constexpr size_t kEventsKept = 20000;
constexpr size_t kLongestText = 300;
constexpr char kNothing[] = "null";

}  // namespace

const char* SourceName(Source source) {
  switch (source) {
    case Source::kDesk:
      return "desk";
    case Source::kScript:
      return "script";
    case Source::kRecogniser:
      return "recogniser";
    case Source::kNeighbour:
      return "neighbour";
    case Source::kLed:
      return "led";
    case Source::kBroadcast:
      return "broadcast";
    case Source::kRepublished:
      return "republished";
    case Source::kRequest:
      return "request";
    case Source::kReply:
      return "reply";
    case Source::kBus:
      return "bus";
    case Source::kSerialOut:
      return "serial out";
    case Source::kSerialIn:
      return "serial in";
    case Source::kDisplay:
      return "display";
    case Source::kBeacon:
      return "beacon";
    case Source::kStore:
      return "store";
    case Source::kLog:
      return "daemon log";
  }
  return "";
}

const std::string* FindFact(const Facts& facts, const std::string& name) {
  for (const auto& [fact, value] : facts) {
    if (fact == name) return &value;
  }
  return nullptr;
}

void AddDocumentFacts(const Json::Value& document, Facts& facts, const std::string& prefix) {
  for (const auto& [path, value] : words::Leaves(document)) {
    if (value->isObject() || value->isArray()) continue;  // empty ones
    facts.emplace_back(prefix.empty() || path.empty() ? prefix + path : prefix + "." + path,
                       value->isNull() ? kNothing : value->asString());
  }
}

std::string FactsText(const Facts& facts) {
  std::string text;
  for (const auto& [name, value] : facts) {
    if (value == kNothing) continue;
    if (!text.empty()) text += ' ';
    text.append(name).append("=").append(value);
  }
  return text;
}

std::string Shortened(const std::string& text) {
  const std::string shown = words::Printable(words::Beginning(text, kLongestText));
  return text.size() <= kLongestText ? shown : shown + " (" + std::to_string(text.size()) + " bytes)";
}

void Journal::Add(Source source, const std::string& text, Facts facts) {
  events_.push_back({next_++, std::chrono::system_clock::now(), source, text, std::move(facts)});
  if (events_.size() > kEventsKept) events_.pop_front();
  const Event event = events_.back();  // a listener may add events of its own
  for (const auto& listener : listeners_) listener(event);
}

}  // namespace desk
