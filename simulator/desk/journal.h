// What happened on the desk, in order: one event each, as a line for people and as facts that expectations compare.
#pragma once

#include <json/value.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "json_words.h"

namespace desk {

enum class Source {
  kDesk,         // programs started and ended, the desk's own troubles
  kScript,       // what a script says
  kRecogniser,   // what the recognition process saw
  kNeighbour,    // what a neighbouring device pushed
  kLed,          // the lamp's register
  kBroadcast,    // the daemon's broadcasts
  kRepublished,  // the daemon's copies of results
  kRequest,      // requests, from here or from elsewhere
  kReply,        // their replies
  kBus,          // every other bus message
  kSerialOut,    // frames that left on the external line
  kSerialIn,     // bytes that came in there
  kDisplay,      // what the guidance displays show
  kBeacon,       // the beacon module's commands and answers
  kStore,        // what was looked up or written by hand
  kLog,          // the daemon's own error lines
};

const char* SourceName(Source source);

// Names with values. A JSON document becomes its leaves, "cm_dev.0.ip" for one that lies deeper.
using Facts = std::vector<std::pair<std::string, std::string>>;

// The value of the first fact of that name, or nullptr.
const std::string* FindFact(const Facts& facts, const std::string& name);
void AddDocumentFacts(const Json::Value& document, Facts& facts, const std::string& prefix = "");
std::string FactsText(const Facts& facts);  // "led_color=0 time=3", without those that are null

using words::CompactText;

// A text as it can be shown: without control characters, and cut when it is long.
std::string Shortened(const std::string& text);

struct Event {
  uint64_t number;
  std::chrono::system_clock::time_point time;
  Source source;
  std::string text;
  Facts facts;
};

class Journal {
 public:
  using Listener = std::function<void(const Event&)>;

  void Add(Source source, const std::string& text, Facts facts = {});
  // The listener is called for as long as the journal lives and has to outlive what is still to happen.
  void Listen(Listener listener) { listeners_.push_back(std::move(listener)); }

  // The number that the next event will have. Numbers start at 1 and go up by one.
  uint64_t next() const { return next_; }

  // The latest events, oldest first; the oldest are forgotten in the end.
  const std::deque<Event>& events() const { return events_; }

 private:
  std::deque<Event> events_;
  std::vector<Listener> listeners_;
  uint64_t next_ = 1;
};

}  // namespace desk
