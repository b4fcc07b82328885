#include "relay/relay.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "protocol/names.h"

namespace relay {

namespace {

// The pause between the beginnings of two attempts grows with the time that the hub is away, so that after a cut of a
// minute it is still below twelve seconds.
constexpr Milliseconds kLeastPause = 1000;
constexpr Milliseconds kMostPause = 15000;  // twice that with the random part
constexpr Milliseconds kPauseGrowth = 12;   // ms of absence for one more of pause
constexpr Milliseconds kSteady = 10000;     // a connection that lasted shorter was none

constexpr Milliseconds kQuiet = 200;
constexpr Milliseconds kLongestWait = 2000;
constexpr size_t kTopicsAtOnce = 64;

bool SameHub(const Membership& a, const Membership& b) {
  return a.host == b.host && a.port == b.port && a.tls == b.tls && a.user == b.user && a.ca == b.ca;
}

bool SameNames(const Membership& a, const Membership& b) { return a.site == b.site && a.device == b.device; }

}  // namespace

Relay::Relay(Start start, Milliseconds now)
    : start_(std::move(start)), random_(start_.seed), guard_(start_.boot, kDeviceChange) {
  daemon_.heard_at = now;
  Do(ReadStore{StoreKey::kChange});
  ReadMembership();
}

void Relay::StoreRead(StoreKey key, Found found, std::string_view text, Milliseconds now) {
  switch (key) {
    case StoreKey::kMembership:
      TakeMembership(found, text, now);
      break;
    case StoreKey::kMembershipAsked:
      TakeOwnDocument(found, text, now);
      break;
    case StoreKey::kChange:
      TakeStoredChange(found, text, now);
      break;
    case StoreKey::kDocument:
      guard_.Looked(found, text, now);
      break;
  }
  Turn(now);
}

void Relay::ReadMembership() {
  if (guard_.IsAtWork()) {
    membership_.read_later = true;
  } else {
    Do(ReadStore{StoreKey::kMembership});
  }
}

void Relay::TakeMembership(Found found, std::string_view text, Milliseconds now) {
  membership_.read_again = found == Found::kUnreachable ? now + kStoreRetry : kNever;
  if (found == Found::kUnreachable) return;
  std::string problem;
  std::optional<Membership> membership;
  if (found == Found::kNo) {
    problem = "there is none";
  } else {
    membership = ParseMembership(text, &problem);
  }
  if (problem != membership_.problem && !problem.empty()) {
    Do(Say{kError, "the relay's document cannot be used, the device belongs to no site: " + problem});
  }
  membership_.problem = problem;
  Join(membership.value_or(Membership()), now);
}

void Relay::Join(const Membership& membership, Milliseconds now) {
  const Membership& before = membership_.in_force;
  const bool same_names = SameNames(before, membership);
  const bool same_hub = SameHub(before, membership);
  const bool same_place = before.host == membership.host && before.port == membership.port;
  if (!same_names || !same_hub) {
    LeaveHub(!same_names ? Leaving::kNames : same_place ? Leaving::kToReturn : Leaving::kHub);
  }
  membership_.in_force = membership;
  AllowOrForbidRequests();
  if (same_names && same_hub) return;
  if (!same_names) {
    plan_.state = PlanState::kNone;
    TakePlan(std::nullopt, now);
    duplicate_until_ = 0;
  }
  if (membership.host.empty()) {
    if (membership_.problem.empty()) Do(Say{kInfo, "the device belongs to no site"});
    return;
  }
  Do(Say{kInfo, "the device is " + membership.device + " of " + membership.site + ", its hub " +
                    (membership.tls ? "mqtts://" : "mqtt://") + membership.host + ":" +
                    std::to_string(membership.port)});
  hub_.state = Hub::kWaiting;
  hub_.down_since = now;
  hub_.try_at = now;
}

// What would outlive the device's old names on the hub goes with them; so do counts on a hub that it will not speak to
// any more.
void Relay::LeaveHub(Leaving leaving) {
  const Membership& left = membership_.in_force;
  if (hub_.state == Hub::kUp) {
    if (leaving != Leaving::kToReturn && !said_.topic.empty()) Do(PublishHub{said_.topic, "", true});
    const std::string health = bs::HealthTopic(left.site, left.device);
    Do(PublishHub{health, leaving == Leaving::kNames ? "" : kOfflineText, true});
  }
  if (hub_.state != Hub::kNone) Do(DisconnectHub{});
  hub_.state = Hub::kNone;
  hub_.try_at = kNever;
  hub_.zone_filters.clear();
  requests_.Forget();
  guard_requesters_.clear();
  settling_ = {};
  said_ = {};
  left_behind_ = {};
}

void Relay::Stop() { LeaveHub(Leaving::kToReturn); }

void Relay::HubUp(Milliseconds now) {
  if (hub_.state != Hub::kTrying) return;
  hub_.state = Hub::kUp;
  hub_.up_since = now;
  counts_.OnNewConnection();
  said_.counts.reset();
  // Before the subscriptions: what the hub holds of the relay's health is then its own already.
  PublishHealth(now);
  const Membership& self = membership_.in_force;
  std::set<std::string> topics = {bs::PlanTopic(self.site, self.device), bs::HealthTopic(self.site, self.device),
                                  bs::RequestTopic(self.site, self.device)};
  if (left_behind_.looks) topics.insert(bs::OwnCountsFilter(self.site, self.device));
  hub_.zone_filters.clear();
  for (const std::string& zone : counts_.Zones()) hub_.zone_filters.insert(bs::ZoneFilter(self.site, zone));
  topics.insert(hub_.zone_filters.begin(), hub_.zone_filters.end());
  Subscribe(topics, now);
  Turn(now);
}

void Relay::HubDown(Milliseconds now) {
  if (hub_.state != Hub::kTrying && hub_.state != Hub::kUp) return;
  Milliseconds from = hub_.tried_at;
  if (hub_.state == Hub::kUp) {
    from = now;
    if (now - hub_.up_since >= kSteady) hub_.down_since = now;
  }
  hub_.state = Hub::kWaiting;
  const Milliseconds pause = std::min(kLeastPause + (now - hub_.down_since) / kPauseGrowth, kMostPause);
  hub_.try_at = std::max(from + pause + random_() % pause, now + kLeastPause);
  hub_.zone_filters.clear();
  requests_.Forget();
  guard_requesters_.clear();
  // What was heard of the kept counts so far is no sum. The next connection brings the rest, or time takes these too.
  settling_.acknowledgements = settling_.waiting ? 1 : 0;
  if (settling_.waiting) settling_.until = now + bs::kCountsGoodSeconds * Milliseconds{1000};
  Turn(now);
}

void Relay::TurnHub(Milliseconds now) {
  if (hub_.state != Hub::kWaiting) return;
  if (now < hub_.try_at) {
    WakeAt(hub_.try_at);
    return;
  }
  hub_.state = Hub::kTrying;
  hub_.tried_at = now;
  const Membership& self = membership_.in_force;
  Do(ConnectHub{self, "park-" + self.site + "-" + self.device + "-" + start_.run,
                bs::HealthTopic(self.site, self.device), kOfflineText});
}

void Relay::Subscribe(const std::set<std::string>& topics, Milliseconds now) {
  for (auto topic = topics.begin(); topic != topics.end();) {
    SubscribeHub subscribe;
    while (topic != topics.end() && subscribe.topics.size() < kTopicsAtOnce) subscribe.topics.push_back(*topic++);
    Do(std::move(subscribe));
    ++settling_.acknowledgements;
  }
  settling_.waiting = true;
  settling_.quiet_since = now;
  settling_.until = now + kLongestWait;
}

void Relay::HubSubscribed(Milliseconds now) {
  if (settling_.acknowledgements > 0) --settling_.acknowledgements;
  settling_.quiet_since = now;
  Turn(now);
}

bool Relay::Settled(Milliseconds now) {
  if (!settling_.waiting) return true;
  Milliseconds end = settling_.until;
  if (settling_.acknowledgements == 0) end = std::min(end, settling_.quiet_since + kQuiet);
  settling_.waiting = now < end;
  if (settling_.waiting) WakeAt(end);
  return !settling_.waiting;
}

void Relay::Turn(Milliseconds now) {
  next_turn_ = kNever;
  if (now >= membership_.read_again) {
    membership_.read_again = kNever;
    ReadMembership();
  }
  WakeAt(membership_.read_again);
  counts_.Age(now);
  WakeAt(counts_.NextAging());
  TurnDaemon(now);
  TurnGuard(now);
  TurnHub(now);
  TurnRequests(now);
  TurnCounts(now);
  TurnPushes(now);
  TurnHealth(now);
}

}  // namespace relay
