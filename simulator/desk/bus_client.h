// The desk's own client of the message bus. It sees every message but its own, keeps trying while the broker is away,
// and sends requests whose replies come back to it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "bringup/loop.h"

struct mosquitto;
struct mosquitto_message;
struct mqtt5__property;

namespace desk {

struct BusMessage {
  std::string topic;
  std::string payload;
  std::string response_topic;  // where an answer is wanted, empty for none
  std::string correlation;
};

class BusClient {
 public:
  using Handler = std::function<void(const BusMessage&)>;

  explicit BusClient(Loop& loop);
  ~BusClient();
  BusClient(const BusClient&) = delete;
  BusClient& operator=(const BusClient&) = delete;

  void OnMessage(Handler handler) { handler_ = std::move(handler); }

  // Starts to connect and keeps connected from then on.
  void Start();
  bool connected() const { return subscribed_; }

  // False while the broker is away: the message is then lost, as on the device.
  bool Publish(const std::string& topic, const std::string& payload);
  bool Request(const std::string& topic, const std::string& payload, const std::string& response_topic,
               const std::string& correlation);

 private:
  void Connect();
  void Disconnected();
  void Serve();
  void Flush();
  bool Send(const std::string& topic, const std::string& payload, const mqtt5__property* properties);
  void Received(const mosquitto_message* message, const mqtt5__property* properties);

  Loop& loop_;
  Handler handler_;
  mosquitto* client_ = nullptr;
  int descriptor_ = -1;
  bool subscribed_ = false;
  uint64_t upkeep_ = 0;
};

}  // namespace desk
