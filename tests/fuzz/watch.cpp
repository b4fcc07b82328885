// What a watcher of the bus prints: one line for each message, whatever it carries. The first byte is the type's
// letter.
#include "message_words.h"
#include "target.h"

FUZZ_TARGET(input) {
  static const std::vector<std::string> types = parkctl::WatchedTypes();
  if (input.empty()) return;
  const std::string& type = types[static_cast<uint8_t>(input[0] - 'a') % types.size()];
  const std::string data(input.substr(1));
  const std::string words = parkctl::MessageWords(type, data, Json::Value(7));
  MUST_HOLD(words.find('\n') == std::string::npos);
  const Json::Value document = parkctl::MessageJson(type, data, Json::Value(7));
  MUST_HOLD(parkctl::OneLineText(document).find('\n') == std::string::npos);
}
