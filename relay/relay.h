// The relay's decisions. It is told what the device's bus, the hub and the store said and what time it is, and answers
// with what is to be done (outputs.h). No socket, no clock, no log, no randomness but its seed: a whole site can be
// played in one process.
//
// Times are milliseconds of a clock that is never set and never runs backwards.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "relay/change_guard.h"
#include "relay/health.h"
#include "relay/outputs.h"
#include "relay/own_counts.h"
#include "relay/pushes.h"
#include "relay/remote_requests.h"
#include "relay/site_counts.h"

namespace relay {

constexpr Milliseconds kStoreRetry = 5000;  // after a read that nobody answered

struct Start {
  std::string run;      // eight hexadecimal digits, drawn anew for each process
  std::string version;  // of the program
  int64_t since = 0;    // Unix time, s
  uint32_t seed = 1;    // of the pauses
  std::string boot{};   // tells one run of the machine from another
};

class Relay {
 public:
  Relay(Start start, Milliseconds now);

  // ---- what happens; each does what is due by then, too ----
  void BusUp(Milliseconds now);
  void BusDown(Milliseconds now);
  void BusHeard(std::string_view type, std::string_view payload, Milliseconds now);
  void DeviceAnswered(uint64_t id, std::string_view payload, Milliseconds now);
  void StoreRead(StoreKey key, Found found, std::string_view text, Milliseconds now);
  void StoreWritten(StoreKey key, bool done, Milliseconds now);
  void HubUp(Milliseconds now);
  void HubDown(Milliseconds now);
  void HubSubscribed(Milliseconds now);
  void HubHeard(const HubMessage& message, Milliseconds now);
  void Turn(Milliseconds now);  // time passes
  void Stop();                  // the process ends in order

  // When it wants its next turn.
  Milliseconds NextTurn() const { return next_turn_; }

  // What is to be done since the last call, in order.
  std::vector<Output> Take() { return std::exchange(outputs_, {}); }

 private:
  enum class Hub { kNone, kWaiting, kTrying, kUp };

  template <typename What>
  void Do(What what) {
    outputs_.emplace_back(std::in_place_type<What>, std::move(what));
  }
  void WakeAt(Milliseconds time) { next_turn_ = std::min(next_turn_, time); }

  // ---- relay.cpp: membership and connection ----
  void ReadMembership();
  void TakeMembership(Found found, std::string_view text, Milliseconds now);
  void Join(const Membership& membership, Milliseconds now);
  enum class Leaving { kToReturn, kHub, kNames };
  void LeaveHub(Leaving leaving);
  void TurnHub(Milliseconds now);
  void Subscribe(const std::set<std::string>& topics, Milliseconds now);
  bool Settled(Milliseconds now);

  // ---- relay_device.cpp: the device's bus ----
  void HeardFrame(const Frame& frame, Milliseconds now);
  void HeardClearAll(Milliseconds now);
  bool IsSilent(Milliseconds now) const;
  bool IsTooMany() const;
  DaemonState Daemon(Milliseconds now) const;
  void TurnDaemon(Milliseconds now);
  void TurnCounts(Milliseconds now);
  void TurnLeftBehind(const std::string& topic, Milliseconds now);
  void TurnPushes(Milliseconds now);

  // ---- relay_hub.cpp: what the hub says ----
  void HeardPlan(std::string_view payload, Milliseconds now);
  void TakePlan(std::optional<Plan> plan, Milliseconds now);
  void HeardOwnHealth(const HubMessage& message, Milliseconds now);
  void HeardCounts(const HubMessage& message, Milliseconds now);
  void HeardRequest(const HubMessage& message, Milliseconds now);
  void Reject(std::string_view topic, Milliseconds now);
  void Answer(const Requester& requester, std::string payload);
  void TurnRequests(Milliseconds now);
  HealthState StateNow(Milliseconds now) const;
  void PublishHealth(Milliseconds now);
  void TurnHealth(Milliseconds now);

  // ---- relay_changes.cpp: the relay's own document and changes that are tried ----
  // A request about the relay's own document, of the site's or of the guard's.
  struct OwnRequest {
    std::optional<Requester> requester;
    std::string type;
    Json::Value body;
  };
  bool TakeOwnRequest(const Requester& requester, std::string_view payload, Milliseconds now);
  void BeginOwn(OwnRequest own, Milliseconds now);
  std::optional<OwnRequest> OldestOwn();
  void EndOwn(const OwnRequest& own, int state, const std::string& error_msg, const Json::Value& body,
              Milliseconds now);
  void TakeOwnDocument(Found found, std::string_view text, Milliseconds now);
  void TakeStoredChange(Found found, std::string_view text, Milliseconds now);
  void AllowOrForbidRequests();
  void TurnGuard(Milliseconds now);

  const Start start_;
  std::minstd_rand random_;
  std::vector<Output> outputs_;
  Milliseconds next_turn_ = kNever;

  struct {
    Membership in_force;
    std::string problem;  // said
    Milliseconds read_again = kNever;
    bool read_later = false;  // when what changes it has been answered
  } membership_;

  struct {
    Hub state = Hub::kNone;
    Milliseconds down_since = 0;
    Milliseconds up_since = 0;
    Milliseconds tried_at = 0;
    Milliseconds try_at = kNever;
    std::set<std::string> zone_filters;  // subscribed
  } hub_;

  // After a subscription the kept counts come one by one.
  struct {
    bool waiting = false;
    int acknowledgements = 0;  // of the hub, that are outstanding
    Milliseconds quiet_since = 0;
    Milliseconds until = 0;
  } settling_;

  struct {
    bool up = false;
    Milliseconds heard_at;
    std::optional<Counts> own;
    Milliseconds paused_until = 0;
    Milliseconds pause = 0;  // the latest one's length
    bool paused = false;
  } daemon_;

  // Own counts on the hub.
  struct {
    std::optional<Counts> counts;  // the latest said on this connection
    Milliseconds at = 0;
    std::string topic;  // that may hold some, also from an earlier connection
  } said_;

  // Own counts that the hub keeps from an earlier run, whose zone may have been another. Looked for until the first
  // plan is known.
  struct {
    bool looks = true;
    std::set<std::string> topics;
  } left_behind_;

  struct {
    PlanState state = PlanState::kNone;
    std::optional<Plan> in_force;
  } plan_;

  struct {
    HealthState state;
    Milliseconds at = 0;
  } health_said_;

  SiteCounts counts_;
  Pushes pushes_;
  WaitingRequests requests_;
  uint64_t last_request_ = 0;
  bool requests_allowed_ = false;

  ChangeGuard guard_;
  Milliseconds read_change_again_ = kNever;
  uint64_t guard_ask_ = 0;                          // number of its question to the device
  std::map<uint64_t, Requester> guard_requesters_;  // by token
  std::deque<OwnRequest> own_requests_;             // in the order in which the store is asked

  uint64_t rejected_ = 0;
  Milliseconds say_rejected_ = 0;  // not before
  Milliseconds duplicate_until_ = 0;
};

}  // namespace relay
