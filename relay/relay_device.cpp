// The device's bus: what the daemon says, and what it is told.
#include <algorithm>
#include <utility>

#include "protocol/json_text.h"
#include "protocol/names.h"
#include "relay/relay.h"

namespace relay {

namespace {

constexpr char kRelayStarted[] = "relay_started";

constexpr Milliseconds kSilence = 70000;
constexpr Milliseconds kOwnSpacing = 100;   // of own counts
constexpr Milliseconds kOwnRepeat = 25000;  // of own counts
constexpr uint32_t kCountsExpiry_s = 90;    // the hub keeps own counts for so long

constexpr Milliseconds kFirstPause = 60000;
constexpr Milliseconds kLongestPause = 3600000;
constexpr Milliseconds kCalm = 600000;  // after which the daemon's counts were plausible again

// The "type" of a message of the device, empty where it has none.
std::string TypeOf(std::string_view payload) {
  Json::Value message;
  if (!bs::ParseJson(payload, message) || !message.isObject() || !message[bs::kType].isString()) return "";
  return message[bs::kType].asString();
}

}  // namespace

void Relay::BusUp(Milliseconds now) {
  daemon_.up = true;
  Do(Broadcast{std::string("{\"type\": \"") + kRelayStarted + "\"}"});
  pushes_.PushAllAgain();
  ReadMembership();
  Turn(now);
}

void Relay::BusDown(Milliseconds now) {
  daemon_.up = false;
  Turn(now);
}

void Relay::BusHeard(std::string_view type, std::string_view payload, Milliseconds now) {
  if (type == bs::kBusBroadcastMessage) {
    if (const auto frame = ReadFrame(payload)) HeardFrame(*frame, now);
  } else if (type == bs::kHttpRequestMessageRoot) {
    if (TypeOf(payload) == bs::kClearAllDestAddr) HeardClearAll(now);
  } else if (type == bs::kHttpBroadcastMessageRoot) {
    if (TypeOf(payload) != kRelayStarted) ReadMembership();
  }
  Turn(now);
}

void Relay::HeardFrame(const Frame& frame, Milliseconds now) {
  pushes_.Heard(frame, now);
  if (!frame.own) return;
  if (IsSilent(now)) Do(Say{kInfo, "the daemon is heard again"});
  daemon_.own = frame.own;
  daemon_.heard_at = now;
}

void Relay::HeardClearAll(Milliseconds now) {
  if (daemon_.paused) return;
  const bool again = daemon_.pause != 0 && now - daemon_.paused_until <= kCalm;
  daemon_.pause = again ? std::min(2 * daemon_.pause, kLongestPause) : kFirstPause;
  daemon_.paused = true;
  daemon_.paused_until = now + daemon_.pause;
  Do(Say{kError, "the daemon finds its counts implausible: nothing is pushed for " +
                     std::to_string(daemon_.pause / 1000) + " s"});
}

bool Relay::IsSilent(Milliseconds now) const { return now >= daemon_.heard_at + kSilence; }

bool Relay::IsTooMany() const {
  uint64_t spaces = daemon_.own ? daemon_.own->spaces : 0;
  for (size_t i = 0; i < kDirections; ++i) spaces += counts_.Of(i).spaces;
  return spaces > bs::kSiteSpacesMax;
}

DaemonState Relay::Daemon(Milliseconds now) const {
  if (daemon_.paused || IsTooMany()) return DaemonState::kImplausible;
  return IsSilent(now) ? DaemonState::kSilent : DaemonState::kOk;
}

void Relay::TurnDaemon(Milliseconds now) {
  if (daemon_.paused && now >= daemon_.paused_until) {
    daemon_.paused = false;
    pushes_.PushAllAgain();
  }
  if (daemon_.paused) WakeAt(daemon_.paused_until);
  if (!IsSilent(now)) {
    WakeAt(daemon_.heard_at + kSilence);
    return;
  }
  if (daemon_.own) Do(Say{kError, "the daemon has been silent for " + std::to_string(kSilence / 1000) + " s"});
  daemon_.own.reset();  // a stale count is not repeated
  said_.counts.reset();
}

void Relay::TurnCounts(Milliseconds now) {
  if (hub_.state != Hub::kUp) return;
  const Membership& self = membership_.in_force;
  const std::string topic = plan_.in_force ? bs::CountsTopic(self.site, self.device, plan_.in_force->zone) : "";
  if (said_.topic != topic) {
    if (!said_.topic.empty()) Do(PublishHub{said_.topic, "", true});
    said_ = {};
    said_.topic = topic;  // an earlier run's counts may be there
  }
  TurnLeftBehind(topic, now);
  if (topic.empty() || !daemon_.own) return;
  const Milliseconds due = said_.at + (said_.counts != daemon_.own ? kOwnSpacing : kOwnRepeat);
  if (now < due) {
    WakeAt(due);
    return;
  }
  Do(PublishHub{topic, CountsText(*daemon_.own), true, kCountsExpiry_s});
  said_.counts = daemon_.own;
  said_.at = now;
  WakeAt(now + kOwnRepeat);
}

void Relay::TurnLeftBehind(const std::string& topic, Milliseconds now) {
  if (!left_behind_.looks || topic.empty()) return;
  for (const std::string& kept : std::exchange(left_behind_.topics, {})) {
    if (kept != topic) Do(PublishHub{kept, "", true});
  }
  if (!Settled(now)) return;
  left_behind_.looks = false;
  Do(UnsubscribeHub{{bs::OwnCountsFilter(membership_.in_force.site, membership_.in_force.device)}});
}

void Relay::TurnPushes(Milliseconds now) {
  for (size_t i = 0; i < kDirections; ++i) {
    if (!plan_.in_force || plan_.in_force->shows[i].empty()) {
      pushes_.Unwant(i);
      continue;
    }
    const Sums& sums = counts_.Of(i);
    constexpr uint64_t kMost = bs::kSiteSpacesMax + 1;  // and then nothing is pushed
    pushes_.Want(
        i, {static_cast<uint32_t>(std::min(sums.spaces, kMost)), static_cast<uint32_t>(std::min(sums.free, kMost))});
  }
  if (!Settled(now) || !daemon_.up || daemon_.paused || IsTooMany()) return;
  while (const auto push = pushes_.Next(now)) Do(PushCounts{PushText(push->first, push->second)});
  WakeAt(pushes_.NextDue());
}

}  // namespace relay
