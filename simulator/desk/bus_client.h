// The desk's own client of the message bus. It sees every message but its own and keeps trying while the broker is
// away.
#pragma once

#include <functional>
#include <string>

#include "bringup/loop.h"
#include "bringup/network.h"
#include "bus/kept.h"

namespace desk {

using BusMessage = bus::Message;

class BusClient {
 public:
  using Handler = std::function<void(const BusMessage&)>;

  explicit BusClient(Loop& loop, const Network* network = nullptr);

  void OnMessage(Handler handler) { handler_ = std::move(handler); }

  void Start() { connection_.Start(); }
  bool connected() const { return subscribed_ && connection_.up(); }

  // False while the broker is away: the message is then lost, as on the device.
  bool Publish(const std::string& topic, const std::string& payload);
  bool Request(const std::string& topic, const std::string& payload, const std::string& response_topic,
               const std::string& correlation);

 private:
  bus::Connection::Handlers Handlers();

  Handler handler_;
  bool subscribed_ = false;
  bus::Kept<Loop> connection_;
};

}  // namespace desk
