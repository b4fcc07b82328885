#include "relay/own_counts.h"

#include "protocol/json_text.h"
#include "protocol/names.h"

namespace relay {

std::optional<Frame> ReadFrame(std::string_view text) {
  Json::Value message;
  if (!bs::ParseJson(text, message) || !message.isObject()) return std::nullopt;
  if (message[bs::kType] != Json::Value(bs::kFrameChanged) || !message[bs::kBody].isObject()) return std::nullopt;
  const Json::Value& body = message[bs::kBody];
  const Json::Value& pushed = body[bs::kCmDev];
  if (!body[bs::kTotle].isUInt() || !body[bs::kFree].isUInt()) return std::nullopt;
  if (!pushed.isNull() && !pushed.isArray()) return std::nullopt;

  Frame frame;
  int64_t spaces = body[bs::kTotle].asUInt();
  int64_t free = body[bs::kFree].asUInt();
  for (const Json::Value& entry : pushed) {
    if (!entry.isObject() || !entry[bs::kIp].isUInt()) return std::nullopt;
    if (!entry[bs::kTn].isUInt() || !entry[bs::kFn].isUInt()) return std::nullopt;
    const uint32_t address = entry[bs::kIp].asUInt();
    if (address < PushAddress(0) || address > PushAddress(kDirections - 1)) continue;
    const Counts counts = {entry[bs::kTn].asUInt(), entry[bs::kFn].asUInt()};
    frame.reflects[address - PushAddress(0)] = counts;
    spaces -= counts.spaces;
    free -= counts.free;
  }
  // More free spaces than spaces would be refused by everybody else.
  if (spaces >= 0 && free >= 0 && free <= spaces && spaces <= bs::kSiteSpacesMax) {
    frame.own = Counts{static_cast<uint32_t>(spaces), static_cast<uint32_t>(free)};
  }
  return frame;
}

std::string PushText(size_t direction, const Counts& counts) {
  const std::string address = std::to_string(PushAddress(direction));
  const std::string spaces = std::to_string(counts.spaces);
  const std::string free = std::to_string(counts.free);
  return "{\"s_addr\": " + address + ", \"totle\": " + spaces + ", \"free\": " + free +
         ", \"pos\": " + std::to_string(direction) + ", \"cm_dev\": [{\"ip\": " + address + ", \"tn\": " + spaces +
         ", \"fn\": " + free + "}]}";
}

}  // namespace relay
