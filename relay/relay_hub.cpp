// What the hub says, and what it is told about this device.
#include <algorithm>
#include <iterator>
#include <utility>

#include "relay/relay.h"

namespace relay {

namespace {

constexpr size_t kLeftBehindMost = 64;
constexpr Milliseconds kHealthSpacing = 1000;
constexpr Milliseconds kHealthRepeat = 25000;
constexpr Milliseconds kDuplicateSeen = 600000;
constexpr Milliseconds kRejectedSpacing = 60000;  // of log lines

}  // namespace

void Relay::HubHeard(const HubMessage& message, Milliseconds now) {
  if (hub_.state != Hub::kUp) return;
  const Membership& self = membership_.in_force;
  if (message.topic == bs::PlanTopic(self.site, self.device)) {
    HeardPlan(message.payload, now);
  } else if (message.topic == bs::HealthTopic(self.site, self.device)) {
    HeardOwnHealth(message, now);
  } else if (message.topic == bs::RequestTopic(self.site, self.device)) {
    HeardRequest(message, now);
  } else {
    HeardCounts(message, now);
  }
  Turn(now);
}

void Relay::HeardPlan(std::string_view payload, Milliseconds now) {
  if (payload.empty()) {
    if (plan_.in_force) Do(Say{kInfo, "the plan was cleared"});
    plan_.state = PlanState::kNone;
    TakePlan(std::nullopt, now);
    return;
  }
  std::string problem;
  std::optional<Plan> plan;
  if (payload.size() <= bs::kPlanBytesMax) {
    plan = ParsePlan(payload, &problem);
  } else {
    problem = "it has more than " + std::to_string(bs::kPlanBytesMax) + " bytes";
  }
  if (!plan) {
    if (plan_.state != PlanState::kUnreadable) Do(Say{kError, "the plan cannot be read: " + problem});
    plan_.state = PlanState::kUnreadable;
    ++rejected_;
    return;
  }
  plan_.state = PlanState::kOk;
  TakePlan(std::move(plan), now);
}

void Relay::TakePlan(std::optional<Plan> plan, Milliseconds now) {
  if (plan == plan_.in_force) return;
  plan_.in_force = std::move(plan);
  counts_.Show(plan_.in_force ? plan_.in_force->shows : Plan().shows);
  if (hub_.state != Hub::kUp) return;

  const Membership& self = membership_.in_force;
  std::set<std::string> wanted;
  for (const std::string& zone : counts_.Zones()) wanted.insert(bs::ZoneFilter(self.site, zone));
  std::vector<std::string> gone;
  std::set_difference(hub_.zone_filters.begin(), hub_.zone_filters.end(), wanted.begin(), wanted.end(),
                      std::back_inserter(gone));
  std::set<std::string> added;
  std::set_difference(wanted.begin(), wanted.end(), hub_.zone_filters.begin(), hub_.zone_filters.end(),
                      std::inserter(added, added.end()));
  hub_.zone_filters = std::move(wanted);
  if (!gone.empty()) Do(UnsubscribeHub{std::move(gone)});
  if (!added.empty()) Subscribe(added, now);
}

void Relay::HeardOwnHealth(const HubMessage& message, Milliseconds now) {
  Json::Value health;
  if (message.payload.empty()) {
    PublishHealth(now);
    return;
  }
  if (!ParseObject(message.payload, &health) || !health["online"].isBool()) {
    Reject(message.topic, now);
    return;
  }
  if (!health["online"].asBool()) {
    PublishHealth(now);
    return;
  }
  // A kept one may be that of an earlier run.
  if (message.kept || !health["run"].isString() || health["run"].asString() == start_.run) return;
  if (now >= duplicate_until_) {
    Do(Say{kError, "another relay runs under the name of " + membership_.in_force.device + " (run " +
                       health["run"].asString() + "): two devices bear one name"});
  }
  duplicate_until_ = now + kDuplicateSeen;
}

void Relay::HeardCounts(const HubMessage& message, Milliseconds now) {
  const auto source = ParseCountsTopic(membership_.in_force.site, message.topic);
  if (!source) {
    Reject(message.topic, now);
    return;
  }
  if (message.kept) settling_.quiet_since = now;
  if (source->device == membership_.in_force.device) {
    const bool noted = message.kept && !message.payload.empty() && left_behind_.topics.size() < kLeftBehindMost;
    if (noted && left_behind_.looks) left_behind_.topics.emplace(message.topic);
    return;
  }
  if (message.payload.empty()) {
    counts_.Clear(source->device, source->zone);
    return;
  }
  const auto counts = ParseCounts(message.payload);
  if (!counts || !counts_.Hear(source->device, source->zone, *counts, message.kept, now)) Reject(message.topic, now);
}

void Relay::HeardRequest(const HubMessage& message, Milliseconds now) {
  // A request that the hub keeps would be carried out again on each connection.
  if (message.kept || !IsReplyTopic(membership_.in_force.site, message.response_topic)) {
    Reject(message.topic, now);
    return;
  }
  Requester requester;
  requester.topic = message.response_topic;
  if (message.correlation) requester.correlation = std::string(*message.correlation);
  const Verdict verdict = Judge(message.payload, membership_.in_force.remote);
  requester.type = verdict.type;
  if (verdict.state != kAllowed) {
    Answer(requester, RefusalText(verdict.state, verdict.error_msg, verdict.type));
    return;
  }
  if (TakeOwnRequest(requester, message.payload, now)) return;
  if (requests_.IsFull()) {
    Answer(requester, RefusalText(503, "busy", verdict.type));
    return;
  }
  requests_.Add(++last_request_, std::move(requester), now);
  Do(AskDevice{last_request_, std::string(message.payload)});
}

void Relay::DeviceAnswered(uint64_t id, std::string_view payload, Milliseconds now) {
  if (id == guard_ask_) {
    guard_ask_ = 0;
    guard_.Answered(payload, now);
  } else if (const auto requester = requests_.Take(id)) {
    Answer(*requester, std::string(payload));
  }
  Turn(now);
}

void Relay::Answer(const Requester& requester, std::string payload) {
  if (hub_.state != Hub::kUp) return;
  PublishHub answer{requester.topic, std::move(payload)};
  answer.correlation = requester.correlation;
  Do(std::move(answer));
}

void Relay::TurnRequests(Milliseconds now) {
  for (const Requester& requester : requests_.TakeOverdue(now)) {
    Answer(requester, RefusalText(504, "the device does not answer", requester.type));
  }
  WakeAt(requests_.NextDue());
}

void Relay::Reject(std::string_view topic, Milliseconds now) {
  ++rejected_;
  if (now < say_rejected_) return;
  say_rejected_ = now + kRejectedSpacing;
  Do(Say{kError, "a message on " + std::string(topic) + " was dropped as malformed, " + std::to_string(rejected_) +
                     " since the start"});
}

HealthState Relay::StateNow(Milliseconds now) const {
  HealthState state;
  state.daemon = Daemon(now);
  state.plan = plan_.state;
  state.counts_known = daemon_.own.has_value();
  for (size_t i = 0; i < kDirections; ++i) state.shows[i] = plan_.in_force && !plan_.in_force->shows[i].empty();
  state.missing_version = counts_.missing_version();
  state.rejected = rejected_;
  state.duplicate = now < duplicate_until_;
  return state;
}

void Relay::PublishHealth(Milliseconds now) {
  Health health;
  health.run = start_.run;
  health.version = start_.version;
  health.since = start_.since;
  health.state = StateNow(now);
  health.own = daemon_.own.value_or(Counts());
  for (size_t i = 0; i < kDirections; ++i) {
    if (!health.state.shows[i]) continue;
    health.directions[i] = {counts_.Of(i), counts_.MissingNames(i), counts_.MissingCount(i)};
  }
  const Membership& self = membership_.in_force;
  Do(PublishHub{bs::HealthTopic(self.site, self.device), HealthText(health), true});
  health_said_ = {health.state, now};
}

void Relay::TurnHealth(Milliseconds now) {
  if (now < duplicate_until_) WakeAt(duplicate_until_);
  if (hub_.state != Hub::kUp) return;
  const bool changed = !(StateNow(now) == health_said_.state);
  const Milliseconds due = health_said_.at + (changed ? kHealthSpacing : kHealthRepeat);
  if (now >= due) PublishHealth(now);
  WakeAt(health_said_.at + kHealthRepeat);
  if (now < due) WakeAt(due);
}

}  // namespace relay
