#include "years/hub.h"

#include <mosquitto.h>

#include <algorithm>
#include <utility>

namespace years {
namespace {

constexpr char kAnswerBranch[] = "/reply/";
constexpr Micros kWay = 3 * kMillisecond;
constexpr Micros kConnectPatience = 10 * kSecond;
constexpr Micros kRelayNotices = 25 * kSecond;   // a dead connection
constexpr Micros kBrokerNotices = 30 * kSecond;  // one and a half times the keep-alive

bool Matches(const std::string& filter, const std::string& topic) {
  bool matches = false;
  return mosquitto_topic_matches_sub(filter.c_str(), topic.c_str(), &matches) == MOSQ_ERR_SUCCESS && matches;
}

}  // namespace

bool Hub::Reaches(unsigned cable) const {
  const auto cut = cut_until_.find(cable);
  return cut == cut_until_.end() || cut->second <= schedule_.now();
}

void Hub::Connect(unsigned cable, const relay::ConnectHub& connect, Client client) {
  Connection& connection = connections_[cable];
  connection = {++connections_made_, false, std::move(client), {}, connect.will_topic, connect.will};
  const uint64_t number = connection.number;
  const bool answers = Reaches(cable);
  schedule_.In(answers ? 2 * kWay : kConnectPatience, [this, cable, number, answers] {
    Connection& connection = connections_[cable];
    if (connection.number != number) return;
    if (!answers || schedule_.now() < down_until_ || !Reaches(cable)) {
      connection.number = 0;
      const auto down = std::move(connection.client.down);
      down();
      return;
    }
    connection.accepted = true;
    connection.client.up();
  });
}

// On a cable that is out, what is sent arrives when it is in again: the connection is lost only after a while.
void Hub::Carry(unsigned cable, std::function<void(Connection&)> what) {
  const auto cut = cut_until_.find(cable);
  const Micros leaves = cut == cut_until_.end() ? schedule_.now() : std::max(schedule_.now(), cut->second);
  schedule_.At(leaves + kWay, [this, cable, number = connections_[cable].number, what = std::move(what)] {
    Connection& connection = connections_[cable];
    if (number != 0 && connection.number == number && connection.accepted) what(connection);
  });
}

void Hub::Disconnect(unsigned cable) {
  Carry(cable, [](Connection& connection) { connection = {}; });
}

void Hub::Abort(unsigned cable) {
  if (connections_[cable].number == 0) return;
  Lose(cable, true, 0);
}

// The relay's side goes at once or when it notices, the broker's when it does; each without the other's knowledge.
void Hub::Lose(unsigned cable, bool publishes_will, Micros noticed_after) {
  Connection& connection = connections_[cable];
  if (publishes_will && connection.accepted) {
    schedule_.In(noticed_after + kWay, [this, topic = connection.will_topic, will = connection.will] {
      if (schedule_.now() >= down_until_) Accept(topic, will, true, 0, {});
    });
  }
  connection = {};
}

void Hub::Subscribe(unsigned cable, const std::vector<std::string>& filters) {
  Carry(cable, [this, cable, filters](Connection& connection) {
    connection.filters.insert(connection.filters.end(), filters.begin(), filters.end());
    for (const auto& [topic, kept] : kept_) {
      if (kept.expires != 0 && kept.expires <= schedule_.now()) continue;
      for (const std::string& filter : filters) {
        if (Matches(filter, topic)) Deliver(cable, {topic, kept.payload, true, "", ""});
      }
    }
    Carry(cable, [](Connection& connection) { connection.client.subscribed(); });
  });
}

void Hub::Unsubscribe(unsigned cable, const std::vector<std::string>& filters) {
  Carry(cable, [filters](Connection& connection) {
    for (const std::string& filter : filters) {
      const auto found = std::find(connection.filters.begin(), connection.filters.end(), filter);
      if (found != connection.filters.end()) connection.filters.erase(found);
    }
  });
}

void Hub::Publish(unsigned cable, const relay::PublishHub& message) {
  digest_.Add(message.topic);
  digest_.Add(message.payload);
  Carry(cable, [this, message](Connection&) {
    HubDelivery properties;
    properties.correlation = message.correlation.value_or("");
    Accept(message.topic, message.payload, message.retained, message.expiry_s, properties);
  });
}

void Hub::Accept(const std::string& topic, const std::string& payload, bool retained, uint32_t expiry_s,
                 const HubDelivery& properties) {
  if (topic.find(kAnswerBranch) != std::string::npos) ++answers_[topic];
  if (retained && payload.empty()) {
    kept_.erase(topic);
  } else if (retained) {
    kept_[topic] = {payload, expiry_s == 0 ? 0 : schedule_.now() + expiry_s * kSecond};
  }
  for (auto& [cable, connection] : connections_) {
    if (!connection.accepted) continue;
    const bool wanted = std::any_of(connection.filters.begin(), connection.filters.end(),
                                    [&](const std::string& filter) { return Matches(filter, topic); });
    if (wanted) Deliver(cable, {topic, payload, false, properties.response_topic, properties.correlation});
  }
}

void Hub::Deliver(unsigned cable, HubDelivery message) {
  Carry(cable, [message = std::move(message)](Connection& connection) { connection.client.heard(message); });
}

void Hub::PublishKept(const std::string& topic, const std::string& payload) {
  if (schedule_.now() < down_until_) {  // whoever plans tries again
    schedule_.At(down_until_, [this, topic, payload] { PublishKept(topic, payload); });
    return;
  }
  Accept(topic, payload, true, 0, {});
}

void Hub::Send(const HubDelivery& message) {
  if (schedule_.now() >= down_until_) Accept(message.topic, message.payload, false, 0, message);
}

void Hub::Kill(Micros lasts, bool forgets) {
  down_until_ = std::max(down_until_, schedule_.now() + lasts);
  if (forgets) kept_.clear();
  for (auto& [cable, connection] : connections_) {
    if (connection.number == 0) continue;
    const auto down = std::move(connection.client.down);
    connection = {};
    // Who cannot be told finds out.
    schedule_.In(Reaches(cable) ? kWay : kRelayNotices, down);
  }
}

void Hub::CutCable(unsigned cable, Micros until) {
  cut_until_[cable] = std::max(cut_until_[cable], until);
  const uint64_t number = connections_[cable].number;
  if (number == 0) return;
  schedule_.In(kRelayNotices, [this, cable, number] {
    Connection& connection = connections_[cable];
    if (connection.number != number || Reaches(cable)) return;
    const auto down = std::move(connection.client.down);
    Lose(cable, true, kBrokerNotices - kRelayNotices);
    down();
  });
}

unsigned Hub::TakeAnswers(const std::string& topic) {
  const unsigned answers = answers_[topic];
  answers_.erase(topic);
  return answers;
}

}  // namespace years
