#include "caller.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <poll.h>

#include <algorithm>
#include <random>

namespace bus {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kBrokerWait{5000};
constexpr milliseconds kTickPeriod{1000};
constexpr milliseconds kQuiet{500};  // what the broker keeps has come when nothing came for this long
constexpr int kRefusedFrom = 0x80;   // reasons from here on are refusals

}  // namespace

std::string RandomText() {
  std::random_device random;
  char text[32];
  snprintf(text, sizeof text, "%08x%08x", random(), random());
  return text;
}

Caller::Caller(Options options)
    : address_(options.address),
      user_(options.role.empty() ? options.user : options.role),
      connection_(std::move(options), Handlers()) {}

Connection::Handlers Caller::Handlers() {
  Connection::Handlers handlers;
  handlers.confirmed = [this](int id, int reason) { confirmed_[id] = reason; };
  handlers.subscribed = [this](int, const std::vector<int>& granted) { granted_ = granted; };
  handlers.message = [this](const Message& message) {
    if (response_topic_.empty() || message.topic != response_topic_) {
      received_.push_back(message);
    } else if (message.correlation == correlation_) {
      answer_ = message.payload;
    }
  };
  return handlers;
}

Caller::Outcome Caller::OutcomeOf(int reason) {
  if (reason == MQTT_RC_NO_MATCHING_SUBSCRIBERS) return Outcome::kNobodyListens;
  if (reason < kRefusedFrom) return Outcome::kDelivered;
  refusal_ = mosquitto_reason_string(reason);
  while (!refusal_.empty() && refusal_.back() == '.') refusal_.pop_back();
  return Outcome::kRefused;
}

std::string Caller::problem() const { return problem_.empty() ? connection_.problem() : problem_; }

// Runs the connection until done, or for the wait. False when done was not reached.
bool Caller::Run(milliseconds wait, const std::function<bool()>& done) {
  const Clock::time_point end = Clock::now() + wait;
  while (!done()) {
    const auto now = Clock::now();
    const auto left = std::chrono::ceil<milliseconds>(end - now);
    if (left.count() <= 0 || connection_.descriptor() < 0) return false;
    if (now - ticked_ >= kTickPeriod) {
      ticked_ = now;
      if (!connection_.Tick()) continue;  // done by what came last, perhaps
    }
    const short events = connection_.WantsWrite() ? POLLIN | POLLOUT : POLLIN;
    pollfd polled = {connection_.descriptor(), events, 0};
    const auto pause = std::min(left, kTickPeriod);
    if (poll(&polled, 1, static_cast<int>(pause.count())) > 0) connection_.Serve();
  }
  return true;
}

bool Caller::Connect() {
  if (!connection_.Begin()) return false;
  if (Run(kBrokerWait, [this] { return connection_.up(); })) return true;
  if (problem().empty()) problem_ = "it takes connections but does not answer";
  return false;
}

std::vector<Caller::Outcome> Caller::PublishAll(std::vector<Message> messages,
                                                const std::function<void(size_t)>& told) {
  std::vector<Outcome> outcomes;
  std::vector<std::optional<int>> numbers;
  confirmed_.clear();
  for (Message& message : messages) {
    message.qos = 1;
    numbers.push_back(connection_.Publish(message));
  }
  for (const std::optional<int>& number : numbers) {
    // The library keeps the order: later ones are not confirmed long before this one is.
    const bool heard = number && Run(kBrokerWait, [&] { return confirmed_.count(*number) != 0; });
    outcomes.push_back(heard ? OutcomeOf(confirmed_.at(*number)) : Failure());
    if (told) told(outcomes.size());
  }
  return outcomes;
}

Caller::Outcome Caller::Request(Message message, milliseconds wait, std::string& answer) {
  correlation_ = message.correlation = RandomText();
  response_topic_ = message.response_topic;
  message.qos = 1;
  answer_.reset();
  confirmed_.clear();
  if (!Listen({response_topic_})) return Failure();
  const std::optional<int> number = connection_.Publish(message);
  const auto untaken = [&] { return number && confirmed_.count(*number) != 0 && confirmed_.at(*number) != 0; };
  if (!number || !Run(wait, [&] { return answer_ || untaken(); })) return Failure();
  if (!answer_) return OutcomeOf(confirmed_.at(*number));
  answer = *answer_;
  return Outcome::kDelivered;
}

bool Caller::Listen(const std::vector<std::string>& filters, int qos) {
  granted_.reset();
  if (!connection_.Subscribe(filters, qos) || !Run(kBrokerWait, [this] { return granted_.has_value(); })) {
    if (problem().empty()) problem_ = "it does not take subscriptions";
    return false;
  }
  const auto refused = [](int granted) { return granted >= kRefusedFrom; };
  if (!std::all_of(granted_->begin(), granted_->end(), refused)) return true;
  problem_ = "it does not let " + (user_.empty() ? "strangers" : user_) + " read " + filters.front();
  return false;
}

bool Caller::Receive(milliseconds wait, const std::function<void(const Message&)>& handler) {
  Run(wait, [this] { return !received_.empty(); });
  const std::vector<Message> batch = std::move(received_);
  received_.clear();
  for (const Message& message : batch) handler(message);
  return connection_.up();
}

bool Caller::Collect(const std::vector<std::string>& filters, const std::function<void(const Message&)>& handler) {
  if (!Listen(filters)) return false;
  const Clock::time_point limit = Clock::now() + std::chrono::seconds(60);
  Clock::time_point last = Clock::now();
  while (Clock::now() - last < kQuiet && Clock::now() < limit) {
    const bool up = Receive(std::chrono::ceil<milliseconds>(kQuiet), [&](const Message& message) {
      if (message.retained) last = Clock::now();  // live ones may never end
      handler(message);
    });
    if (!up) return false;
  }
  return true;
}

}  // namespace bus
