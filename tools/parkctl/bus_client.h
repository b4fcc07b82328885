// parkctl's own connection to the device's message bus (MQTT 5). One object, one connection: when it is lost, a new
// object makes a new one.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

struct mosquitto;
struct mosquitto_message;
struct mqtt5__property;

namespace parkctl {

struct BusMessage {
  std::string type;
  std::string data;
};

class BusClient {
 public:
  enum class Outcome { kDelivered, kNobodyListens, kRefused, kSilent, kNoBroker };

  // Speaks in a role (bus_account.h), where the device keeps accounts and the user may read that one.
  BusClient(uint16_t port, const char* role);
  ~BusClient();
  BusClient(const BusClient&) = delete;
  BusClient& operator=(const BusClient&) = delete;

  bool Connect();

  // Waits until the broker has the message and says whether somebody takes its type.
  Outcome Publish(const std::string& type, const std::string& data);

  // kDelivered: answer holds the reply. A command may keep the device busy: the wait is the caller's.
  Outcome Request(const std::string& type, const std::string& data, std::chrono::milliseconds wait,
                  std::string& answer);

  bool Listen(const std::vector<std::string>& types);

  // Hands over what arrives within the wait (returns earlier once something did). False: the connection is lost.
  bool Receive(std::chrono::milliseconds wait, const std::function<void(const BusMessage&)>& handler);

  // Says on standard error why there was no answer and what to look at; returns the exit status.
  int Explain(Outcome outcome, const std::string& type) const;

 private:
  static void OnConnect(mosquitto*, void* self, int reason, int flags, const mqtt5__property*);
  static void OnSubscribe(mosquitto*, void* self, int id, int count, const int* granted, const mqtt5__property*);
  static void OnPublish(mosquitto*, void* self, int id, int reason, const mqtt5__property*);
  static void OnMessage(mosquitto*, void* self, const mosquitto_message*, const mqtt5__property*);

  bool Run(std::chrono::milliseconds wait, const std::function<bool()>& done);
  bool Send(const std::string& type, const std::string& data, const mqtt5__property* properties);
  Outcome Failure() const;

  uint16_t port_;
  const char* const role_;
  mosquitto* client_;
  std::string problem_;  // why there is no connection
  bool connected_ = false;
  bool lost_ = false;
  bool stranger_ = false;  // the broker wants an account
  bool subscribed_ = false;
  std::optional<int> taken_;  // the broker's reason code for the message sent last
  std::string reply_topic_;   // of the request under way
  std::string correlation_;
  std::optional<std::string> answer_;
  std::vector<BusMessage> received_;
};

}  // namespace parkctl
