// Requests that come from the site: which of them the device takes, and which of them wait for its answer.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "relay/documents.h"
#include "relay/site_counts.h"

namespace relay {

struct Verdict {
  int state = 0;  // 0: allowed
  const char* error_msg = "";
  std::string type;  // the request's, empty where it has none
};

inline constexpr int kAllowed = 0;
Verdict Judge(std::string_view text, Remote remote);

// {"state": 403, "error_msg": "...", "type": "..."}
std::string RefusalText(int state, const std::string& error_msg, const std::string& type);

// Whether an answer may go there: below park/<site>/reply/.
bool IsReplyTopic(std::string_view site, std::string_view topic);

// Where an answer goes.
struct Requester {
  std::string topic;
  std::optional<std::string> correlation;
  std::string type;
};

class WaitingRequests {
 public:
  static constexpr size_t kMost = 8;
  static constexpr Milliseconds kPatience = 5000;

  bool IsFull() const { return waiting_.size() >= kMost; }
  void Add(uint64_t id, Requester requester, Milliseconds now);
  std::optional<Requester> Take(uint64_t id);
  std::vector<Requester> TakeOverdue(Milliseconds now);
  Milliseconds NextDue() const { return waiting_.empty() ? kNever : waiting_.front().until; }
  void Forget() { waiting_.clear(); }

 private:
  struct Waiting {
    uint64_t id;
    Requester requester;
    Milliseconds until;
  };
  std::deque<Waiting> waiting_;  // oldest first
};

}  // namespace relay
