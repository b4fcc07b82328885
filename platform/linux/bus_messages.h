// How an MQTT message becomes the bus's record, and where the answer to it goes. No connection is needed.
#pragma once

#include <mosquitto.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dp_client.h"

namespace platform {

// Record and payload in one block; the element's size keeps it aligned.
using RecordBuffer = std::vector<_TagDpMsg>;

// Fills the buffer, which grows where it must. A topic longer than the record's field is cut.
const _TagDpMsg* FillRecord(const mosquitto_message& message, uint32_t message_id, RecordBuffer* buffer);

// Where an answer goes.
struct ReplyAddress {
  std::string topic;
  bool has_correlation = false;
  std::string correlation;
};

// The message's response topic, or "<type>/reply" where it has none. Nothing when it names a topic that is neither
// below "reply/" nor "<type>/reply": whoever asks must not have the device say what he likes as what he likes.
std::optional<ReplyAddress> ReplyAddressOf(const mosquitto_message& message, const mosquitto_property* properties);

}  // namespace platform
