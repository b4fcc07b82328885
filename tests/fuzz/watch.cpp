// What a watcher of the bus prints: one line for each message, whatever it carries.
#include "message_words.h"
#include "target.h"

FUZZ_TARGET(input) {
  const std::string data(input);
  for (const std::string& type : parkctl::WatchedTypes()) {
    const std::string words = parkctl::MessageWords(type, data, Json::Value(7));
    MUST_HOLD(words.find('\n') == std::string::npos);
    const Json::Value document = parkctl::MessageJson(type, data, Json::Value(7));
    MUST_HOLD(parkctl::OneLineText(document).find('\n') == std::string::npos);
  }
}
