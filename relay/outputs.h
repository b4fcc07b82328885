// What the relay wants done, in order. Whoever runs it does it: nothing here waits for an answer, and none is owed but
// those that the relay's inputs name.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "protocol/stored_documents.h"
#include "relay/documents.h"

namespace relay {

// Places of the relay's own in the device's store. The second is the first, read on another's behalf; the last is a
// document of the daemon's, which is only read.
enum class StoreKey { kMembership, kMembershipAsked, kChange, kDocument };

// The answers of a store.
enum class Found { kYes, kNo, kUnreachable };

// ---- to the hub ----
struct ConnectHub {  // answered by HubUp or HubDown
  Membership membership;
  std::string client_id;
  std::string will_topic;  // retained there: will
  std::string will;
};
struct DisconnectHub {};  // in order: what was published before goes out first, and the will is not
struct SubscribeHub {     // answered by HubSubscribed
  std::vector<std::string> topics;
};
struct UnsubscribeHub {
  std::vector<std::string> topics;
};
struct PublishHub {
  std::string topic;
  std::string payload;
  bool retained = false;
  uint32_t expiry_s = 0;  // 0: none
  std::optional<std::string> correlation = {};
};

// ---- to the device ----
struct PushCounts {  // BUS_NET_PUSH
  std::string text;
};
struct Broadcast {  // HTTP_BROADCAST_MESSAGE_ROOT
  std::string text;
};
struct AllowRequests {  // whether AskDevice may come
  bool on = false;
};
struct AskDevice {  // BUS_REQUEST_MESSAGE, answered by DeviceAnswered
  uint64_t id = 0;
  std::string text;
};
struct ReadStore {  // answered by StoreRead
  StoreKey key;
  const bs::StoredDocument* document = nullptr;  // for kDocument
};
struct WriteStore {  // answered by StoreWritten
  StoreKey key;
  std::string text;  // empty: nothing is to be stored there
};

// The log's levels.
constexpr int kInfo = 1;
constexpr int kError = 3;

struct Say {  // in the log
  int level;
  std::string text;
};

using Output = std::variant<ConnectHub, DisconnectHub, SubscribeHub, UnsubscribeHub, PublishHub, PushCounts, Broadcast,
                            AllowRequests, AskDevice, ReadStore, WriteStore, Say>;

// A message of the hub; the views end with the call that hands it over.
struct HubMessage {
  std::string_view topic;
  std::string_view payload;
  bool kept = false;  // the hub held it before the relay subscribed
  std::string_view response_topic;
  std::optional<std::string_view> correlation;
};

}  // namespace relay
