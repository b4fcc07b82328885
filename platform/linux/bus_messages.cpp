#include "bus_messages.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "mqtt_properties.h"

namespace platform {

namespace {

constexpr size_t kMaxTypeName = sizeof(_TagDpMsg::type_name) - 1;

bool ReadWaitingRequest(const mosquitto_property* properties, WaitingRequest* request) {
  const ReceivedProperties received(properties);
  if (received.response_topic().empty()) return false;
  request->response_topic = received.response_topic();
  request->has_correlation = received.correlation().has_value();
  if (request->has_correlation) request->correlation = *received.correlation();
  return true;
}

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

uint32_t WaitingRequests::Remember(const mosquitto_property* properties) {
  last_id_ = (last_id_ | 1) + 1;
  WaitingRequest request;
  if (!ReadWaitingRequest(properties, &request)) return last_id_;
  request.message_id = last_id_ | 1;
  if (waiting_.size() >= kLimit) waiting_.pop_front();
  waiting_.push_back(std::move(request));
  return waiting_.back().message_id;
}

bool WaitingRequests::Take(uint32_t message_id, WaitingRequest* request) {
  // From the newest, which is nearly always the one.
  const auto found = std::find_if(waiting_.rbegin(), waiting_.rend(),
                                  [&](const WaitingRequest& waiting) { return waiting.message_id == message_id; });
  if (found == waiting_.rend()) return false;
  *request = std::move(*found);
  waiting_.erase(std::next(found).base());
  return true;
}

}  // namespace platform
