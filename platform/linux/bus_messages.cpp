#include "bus_messages.h"

#include <cstring>
#include <string_view>

#include "mqtt_properties.h"

namespace platform {

namespace {

constexpr size_t kMaxTypeName = sizeof(_TagDpMsg::type_name) - 1;

constexpr std::string_view kReplies = "reply/";

}  // namespace

const _TagDpMsg* FillRecord(const mosquitto_message& message, uint32_t message_id, RecordBuffer* buffer) {
  const size_t size = static_cast<size_t>(message.payloadlen);
  const size_t records = 1 + size / sizeof(_TagDpMsg) + 1;  // at least one byte more than the payload
  if (buffer->size() < records) buffer->resize(records);

  _TagDpMsg& record = buffer->front() = {};
  const size_t name_length = strnlen(message.topic, kMaxTypeName);
  record.type_name_len = static_cast<uint8_t>(name_length);
  memcpy(record.type_name, message.topic, name_length);
  record.message_id = message_id;
  record.data_size = static_cast<uint32_t>(size);
  char* const payload = reinterpret_cast<char*>(&record + 1);
  if (size > 0) memcpy(payload, message.payload, size);
  payload[size] = '\0';
  return &record;
}

std::optional<ReplyAddress> ReplyAddressOf(const mosquitto_message& message, const mosquitto_property* properties) {
  ReplyAddress address{std::string(message.topic) + "/reply", false, {}};
  const ReceivedProperties received(properties);
  const std::string_view asked = received.response_topic();
  if (asked.empty()) return address;
  const bool below_replies = asked.size() > kReplies.size() && asked.substr(0, kReplies.size()) == kReplies;
  if (!below_replies && asked != address.topic) return std::nullopt;
  address.topic = asked;
  address.has_correlation = received.correlation().has_value();
  if (address.has_correlation) address.correlation = *received.correlation();
  return address;
}

}  // namespace platform
