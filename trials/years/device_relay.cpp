// The relay of a played device: its heart is the real one; what stands around it is here.
#include <cstdio>
#include <type_traits>
#include <variant>

#include "protocol/names.h"
#include "protocol/site_names.h"
#include "years/device.h"
#include "years/requests.h"

namespace years {
namespace {

namespace bs = businessserver;

constexpr Micros kAnswerPatience = 3 * kMinute;  // a change that cannot be made is set back before it is answered

const char* KeyOf(relay::StoreKey key) {
  return key == relay::StoreKey::kChange ? "relay_change_value" : "relay_value";
}

}  // namespace

void Device::StartRelay() {
  Random random(world_.seed ^ world_.schedule.now(), number_);
  char run[9];
  snprintf(run, sizeof run, "%08x", static_cast<unsigned>(random.Next()));
  ++relay_life_;
  relay_ = std::make_unique<relay::Relay>(
      relay::Start{run, "years", world_.wall_start, static_cast<uint32_t>(random.Next())},
      world_.schedule.now() / kMillisecond);
  relay_wakes_at_ = relay::kNever;
  RelayTurn([this](relay::Milliseconds now) { relay_->Turn(now); });
  ConnectRelayToBus();
}

void Device::EndRelay(bool in_order, Micros rests) {
  if (!relay_) return;
  if (in_order) {
    RelayTurn([this](relay::Milliseconds) { relay_->Stop(); });
  } else {
    world_.hub.Abort(number_);
  }
  relay_on_bus_ = false;
  ++relay_life_;
  relay_.reset();
  world_.schedule.In(rests, [this, life = relay_life_] {
    if (life == relay_life_) StartRelay();
  });
}

void Device::ConnectRelayToBus() {
  world_.schedule.In(kBusRetry, [this, life = relay_life_] {
    if (life != relay_life_ || relay_on_bus_) return;
    if (!bus_.up) return ConnectRelayToBus();
    relay_on_bus_ = true;
    RelayTurn([this](relay::Milliseconds now) { relay_->BusUp(now); });
  });
}

void Device::RelayTurn(const std::function<void(relay::Milliseconds)>& input) {
  if (!relay_) return;
  input(world_.schedule.now() / kMillisecond);
  for (const relay::Output& output : relay_->Take()) DoForRelay(output);
  WakeRelay();
}

void Device::WakeRelay() {
  const relay::Milliseconds next = relay_->NextTurn();
  if (next == relay::kNever || next == relay_wakes_at_) return;
  relay_wakes_at_ = next;
  world_.schedule.At(next * kMillisecond, [this, next, life = relay_life_] {
    if (life != relay_life_ || relay_wakes_at_ != next) return;
    relay_wakes_at_ = relay::kNever;
    RelayTurn([this](relay::Milliseconds now) { relay_->Turn(now); });
  });
}

void Device::DoForRelay(const relay::Output& output) {
  // What comes back comes to the same process only.
  const auto later = [this](Micros delay, std::function<void(relay::Milliseconds)> input) {
    world_.schedule.In(delay, [this, input = std::move(input), life = relay_life_] {
      if (life == relay_life_) RelayTurn(input);
    });
  };
  std::visit(
      [&](const auto& what) {
        using What = std::decay_t<decltype(what)>;
        if constexpr (std::is_same_v<What, relay::ConnectHub>) {
          const auto turn = [this, life = relay_life_](auto input) {
            if (life == relay_life_) RelayTurn(input);
          };
          world_.hub.Connect(
              number_, what,
              {[this, turn] { turn([this](relay::Milliseconds now) { relay_->HubUp(now); }); },
               [this, turn] { turn([this](relay::Milliseconds now) { relay_->HubDown(now); }); },
               [this, turn] { turn([this](relay::Milliseconds now) { relay_->HubSubscribed(now); }); },
               [this, turn](const HubDelivery& message) {
                 turn([&](relay::Milliseconds now) {
                   relay_->HubHeard(
                       {message.topic, message.payload, message.kept, message.response_topic,
                        message.correlation.empty() ? std::nullopt
                                                    : std::optional<std::string_view>(message.correlation)},
                       now);
                 });
               }});
        } else if constexpr (std::is_same_v<What, relay::DisconnectHub>) {
          world_.hub.Disconnect(number_);
        } else if constexpr (std::is_same_v<What, relay::SubscribeHub>) {
          world_.hub.Subscribe(number_, what.topics);
        } else if constexpr (std::is_same_v<What, relay::UnsubscribeHub>) {
          world_.hub.Unsubscribe(number_, what.topics);
        } else if constexpr (std::is_same_v<What, relay::PublishHub>) {
          const std::string counts = bs::SiteTopic(kSiteName, "counts", name_) + "/";
          if (what.topic.compare(0, counts.size(), counts) == 0 && !what.payload.empty()) {
            world_.promises.DeviceSaysZone(number_, what.topic.substr(counts.size()));
          }
          world_.hub.Publish(number_, what);
        } else if constexpr (std::is_same_v<What, relay::PushCounts>) {
          world_.digest.Add(what.text);
          if (relay_on_bus_) SendToDaemon(bs::kBusNetPush, what.text, 0, world_.schedule.now());
        } else if constexpr (std::is_same_v<What, relay::Broadcast>) {
          if (relay_on_bus_) SendToDaemon(bs::kHttpBroadcastMessageRoot, what.text, 0, world_.schedule.now());
        } else if constexpr (std::is_same_v<What, relay::ReadStore>) {
          std::string text;
          const Store::Answer answer = store.Peek(KeyOf(what.key), &text, world_.schedule.now());
          const relay::Found found = answer == Store::Answer::kDone      ? relay::Found::kYes
                                     : answer == Store::Answer::kMissing ? relay::Found::kNo
                                                                         : relay::Found::kUnreachable;
          later(0, [this, key = what.key, found, text](relay::Milliseconds now) {
            relay_->StoreRead(key, found, text, now);
          });
        } else if constexpr (std::is_same_v<What, relay::WriteStore>) {
          std::string before;
          const bool done = store.Peek(KeyOf(what.key), &before, world_.schedule.now()) != Store::Answer::kFailed;
          if (done && what.text.empty()) store.values.erase(KeyOf(what.key));
          if (done && !what.text.empty()) store.values[KeyOf(what.key)] = what.text;
          later(0, [this, key = what.key, done](relay::Milliseconds now) { relay_->StoreWritten(key, done, now); });
        } else if constexpr (std::is_same_v<What, relay::AskDevice>) {
          const uint32_t id = ++last_request_;
          asked_[id] = {what.text, world_.schedule.now(), 0, 0, false, 0, what.id};
          SendToDaemon(bs::kBusRequestMessage, what.text, id, world_.schedule.now());
          world_.schedule.In(kMinute, [this, id] { asked_.erase(id); });
        }
      },
      output);
}

// From the hub: answered once, or not at all where something was out of order meanwhile.
void Device::AskFromAfar(Random& random) {
  const std::string topic = bs::ReplyTopic(kSiteName, "desk/" + name_ + "-" + std::to_string(++last_request_));
  world_.hub.Send({bs::RequestTopic(kSiteName, name_), DrawQuestionFromAfar(random), false, topic, "afar"});
  world_.schedule.In(kAnswerPatience, [this, topic] {
    const unsigned answers = world_.hub.TakeAnswers(topic);
    if (answers > 1 || (answers == 0 && !world_.promises.IsExcused(number_))) {
      world_.promises.Break(number_, std::to_string(answers) + " answers to a request from afar");
    }
  });
}

}  // namespace years
