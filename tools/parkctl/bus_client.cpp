#include "bus_client.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>

#include "bus_account.h"
#include "console.h"

namespace parkctl {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr char kHost[] = "127.0.0.1";
constexpr char kAccounts[] = "/etc/business-server/bus";  // of an installed device
constexpr int kKeepAliveSeconds = 5;                      // a broker that froze is noticed after about twice this
constexpr milliseconds kBrokerWait{3000};
// The broker confirms a message sent this way, and says so when nobody subscribes to its type.
constexpr int kConfirmed = 1;
constexpr int kUnconfirmed = 0;

struct PropertyDeleter {
  void operator()(mosquitto_property* list) const { mosquitto_property_free_all(&list); }
};
using Properties = std::unique_ptr<mosquitto_property, PropertyDeleter>;

std::string RandomText() {
  std::random_device random;
  char text[32];
  snprintf(text, sizeof text, "%08x%08x", random(), random());
  return text;
}

// The library's own words, as part of a sentence.
std::string ErrorWords(int result) {
  if (result == MOSQ_ERR_KEEPALIVE) return "it stopped answering";  // the library has no words for this one
  std::string words = result == MOSQ_ERR_ERRNO ? strerror(errno) : mosquitto_strerror(result);
  while (!words.empty() && words.back() == '.') words.pop_back();
  return words;
}

BusClient* Self(void* self) { return static_cast<BusClient*>(self); }

}  // namespace

BusClient::BusClient(uint16_t port, const char* role) : port_(port), role_(role) {
  static const int library = mosquitto_lib_init();
  static_cast<void>(library);
  client_ = mosquitto_new(nullptr, true, this);
  if (client_ == nullptr) throw std::bad_alloc();
  mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client_, MOSQ_OPT_TCP_NODELAY, 1);
  platform::UseBusAccount(client_, role, kAccounts);
  mosquitto_connect_v5_callback_set(client_, OnConnect);
  mosquitto_subscribe_v5_callback_set(client_, OnSubscribe);
  mosquitto_publish_v5_callback_set(client_, OnPublish);
  mosquitto_message_v5_callback_set(client_, OnMessage);
}

BusClient::~BusClient() {
  if (connected_ && !lost_) mosquitto_disconnect_v5(client_, MQTT_RC_NORMAL_DISCONNECTION, nullptr);
  mosquitto_destroy(client_);
}

void BusClient::OnConnect(mosquitto*, void* self, int reason, int, const mqtt5__property*) {
  Self(self)->connected_ = reason == MQTT_RC_SUCCESS;
  Self(self)->stranger_ = reason == MQTT_RC_NOT_AUTHORIZED || reason == MQTT_RC_BAD_USERNAME_OR_PASSWORD;
  if (reason != MQTT_RC_SUCCESS) Self(self)->problem_ = mosquitto_reason_string(reason);
}

void BusClient::OnSubscribe(mosquitto*, void* self, int, int, const int*, const mqtt5__property*) {
  Self(self)->subscribed_ = true;
}

void BusClient::OnPublish(mosquitto*, void* self, int, int reason, const mqtt5__property*) {
  Self(self)->taken_ = reason;
}

void BusClient::OnMessage(mosquitto*, void* self, const mosquitto_message* message, const mqtt5__property* properties) {
  BusClient& client = *Self(self);
  std::string data(static_cast<const char*>(message->payload), static_cast<size_t>(message->payloadlen));
  if (message->topic != client.reply_topic_) {
    client.received_.push_back({message->topic, std::move(data)});
    return;
  }
  void* correlation = nullptr;
  uint16_t size = 0;
  mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &correlation, &size, false);
  const std::unique_ptr<void, decltype(&free)> owner(correlation, free);
  if (client.correlation_ == std::string(static_cast<const char*>(correlation), size)) client.answer_ = std::move(data);
}

// Runs the connection until done, or for the wait. False when done was not reached.
bool BusClient::Run(milliseconds wait, const std::function<bool()>& done) {
  const Clock::time_point end = Clock::now() + wait;
  while (!done()) {
    const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now());
    if (left.count() <= 0) return false;
    const int result = mosquitto_loop(client_, static_cast<int>(std::min(left, milliseconds(1000)).count()), 1);
    if (result == MOSQ_ERR_SUCCESS) continue;
    lost_ = true;
    if (problem_.empty()) problem_ = ErrorWords(result);
    return done();
  }
  return true;
}

bool BusClient::Connect() {
  const int result = mosquitto_connect_bind_v5(client_, kHost, port_, kKeepAliveSeconds, nullptr, nullptr);
  if (result != MOSQ_ERR_SUCCESS) {
    problem_ = ErrorWords(result);
    return false;
  }
  if (Run(kBrokerWait, [this] { return connected_; })) return true;
  if (problem_.empty()) problem_ = "it takes connections but does not answer";
  return false;
}

BusClient::Outcome BusClient::Failure() const { return lost_ || !connected_ ? Outcome::kNoBroker : Outcome::kSilent; }

bool BusClient::Send(const std::string& type, const std::string& data, const mqtt5__property* properties) {
  taken_.reset();
  const int result = mosquitto_publish_v5(client_, nullptr, type.c_str(), static_cast<int>(data.size()), data.data(),
                                          kConfirmed, false, properties);
  if (result == MOSQ_ERR_SUCCESS) return true;
  lost_ = true;
  problem_ = ErrorWords(result);
  return false;
}

BusClient::Outcome BusClient::Publish(const std::string& type, const std::string& data) {
  if (!Send(type, data, nullptr) || !Run(kBrokerWait, [this] { return taken_.has_value(); })) return Failure();
  if (*taken_ == MQTT_RC_NOT_AUTHORIZED) return Outcome::kRefused;
  return *taken_ == MQTT_RC_NO_MATCHING_SUBSCRIBERS ? Outcome::kNobodyListens : Outcome::kDelivered;
}

BusClient::Outcome BusClient::Request(const std::string& type, const std::string& data, milliseconds wait,
                                      std::string& answer) {
  correlation_ = RandomText();
  reply_topic_ = "reply/parkctl-" + correlation_;
  answer_.reset();
  if (!Listen({reply_topic_})) return Failure();

  mosquitto_property* list = nullptr;
  mosquitto_property_add_string(&list, MQTT_PROP_RESPONSE_TOPIC, reply_topic_.c_str());
  mosquitto_property_add_binary(&list, MQTT_PROP_CORRELATION_DATA, correlation_.data(),
                                static_cast<uint16_t>(correlation_.size()));
  const Properties properties(list);
  if (!Send(type, data, properties.get())) return Failure();
  const auto nobody = [this] { return taken_ && *taken_ != MQTT_RC_SUCCESS; };
  if (!Run(wait, [&] { return answer_ || nobody(); })) return Failure();
  if (!answer_) return *taken_ == MQTT_RC_NOT_AUTHORIZED ? Outcome::kRefused : Outcome::kNobodyListens;
  answer = *answer_;
  return Outcome::kDelivered;
}

bool BusClient::Listen(const std::vector<std::string>& types) {
  for (const std::string& type : types) {
    subscribed_ = false;
    if (mosquitto_subscribe_v5(client_, nullptr, type.c_str(), kUnconfirmed, 0, nullptr) != MOSQ_ERR_SUCCESS ||
        !Run(kBrokerWait, [this] { return subscribed_; })) {
      if (problem_.empty()) problem_ = "it does not take subscriptions";
      return false;
    }
  }
  return true;
}

bool BusClient::Receive(milliseconds wait, const std::function<void(const BusMessage&)>& handler) {
  Run(wait, [this] { return !received_.empty(); });
  const std::vector<BusMessage> batch = std::move(received_);
  received_.clear();
  for (const BusMessage& message : batch) handler(message);
  return !lost_;
}

int BusClient::Explain(Outcome outcome, const std::string& type) const {
  const std::string where = std::string(kHost) + ":" + std::to_string(port_);
  switch (outcome) {
    case Outcome::kDelivered:
      return kDone;
    case Outcome::kNobodyListens:
      Note("nobody on the bus takes " + type + ". Is the daemon up (business_server)?");
      break;
    case Outcome::kRefused:
      Note(std::string("the bus does not let ") + role_ + " send " + type + ".");
      break;
    case Outcome::kSilent:
      Note(
          "sent, but no answer came. Is the daemon up (business_server), or busy? Its log says what it does; "
          "--timeout waits longer.");
      break;
    case Outcome::kNoBroker:
      if (stranger_) {
        Note("the bus at " + where + " wants the account of " + role_ + ", which is for members of the group " +
             "business-server-" + role_ + " to read.");
        break;
      }
      Note("no bus at " + where + " (" + problem_ + "). Is the broker up (mosquitto)?");
      break;
  }
  return kNoAnswer;
}

}  // namespace parkctl
