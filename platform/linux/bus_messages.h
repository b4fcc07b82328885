// How an MQTT message becomes the bus's record, and how the answer to it finds its way back. No connection is needed.
#pragma once

#include <mosquitto.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "dp_client.h"

namespace platform {

// Record and payload in one block; the element's size keeps it aligned.
using RecordBuffer = std::vector<_TagDpMsg>;

// Fills the buffer, which grows where it must. A topic longer than the record's field is cut.
const _TagDpMsg* FillRecord(const mosquitto_message& message, uint32_t message_id, RecordBuffer* buffer);

// Where the answer to a request goes.
struct WaitingRequest {
  uint32_t message_id = 0;
  std::string response_topic;
  bool has_correlation = false;
  std::string correlation;
};

class WaitingRequests {
 public:
  // Handlers answer before they return: the rest are requests of types that nobody answers, and the oldest of those
  // goes when there are more.
  static constexpr size_t kLimit = 256;

  // Remembers where the answer goes, when the properties name a response topic. Returns the message's id.
  uint32_t Remember(const mosquitto_property* properties);

  // Ids of requests with a response topic are odd, all others even: an answer to a request that is no longer known is
  // then not mistaken for one that everybody may read.
  static constexpr bool HasResponseTopic(uint32_t message_id) { return (message_id & 1) != 0; }

  // Takes a request off the list; false when it is not there.
  bool Take(uint32_t message_id, WaitingRequest* request);

  size_t size() const { return waiting_.size(); }

 private:
  std::deque<WaitingRequest> waiting_;  // oldest first
  uint32_t last_id_ = 0;
};

}  // namespace platform
