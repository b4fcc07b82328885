// Turns what travels on the bus into events that a person can read.
#pragma once

#include <functional>
#include <set>
#include <string>

#include "desk/bus_client.h"
#include "desk/journal.h"

namespace desk {

// Where the replies to the desk's own requests and to its sign-of-life questions arrive.
inline constexpr char kReplyTopic[] = "reply/desk";
inline constexpr char kSignOfLifeTopic[] = "reply/desk/alive";

class BusWatch {
 public:
  BusWatch(Journal& journal, std::function<void()> on_sign_of_life)
      : journal_(journal), on_sign_of_life_(std::move(on_sign_of_life)) {}

  void Handle(const BusMessage& message);

 private:
  void HandleBroadcast(const BusMessage& message);
  void HandleRepublished(const BusMessage& message);
  void HandleRequest(const BusMessage& message);
  void HandleReply(const BusMessage& message);
  void HandleOther(const BusMessage& message);

  Journal& journal_;
  std::function<void()> on_sign_of_life_;
  std::set<std::string> response_topics_;  // where people other than the desk wait for answers
};

// The payload of a bus message in a line: a document, a result record, or text.
std::string PayloadText(const std::string& payload);

}  // namespace desk
