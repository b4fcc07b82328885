#include "desk/bus_client.h"

namespace desk {

BusClient::BusClient(Loop& loop) : connection_(loop, bus::Options(), Handlers()) {}

bus::Connection::Handlers BusClient::Handlers() {
  bus::Connection::Handlers handlers;
  handlers.up = [this] {
    subscribed_ = false;
    connection_.Subscribe({"#"}, 0, false);
  };
  handlers.subscribed = [this](int, const std::vector<int>&) { subscribed_ = true; };
  handlers.message = [this](const BusMessage& message) {
    if (handler_) handler_(message);
  };
  return handlers;
}

bool BusClient::Publish(const std::string& topic, const std::string& payload) {
  return connected() && connection_.Publish({topic, payload});
}

bool BusClient::Request(const std::string& topic, const std::string& payload, const std::string& response_topic,
                        const std::string& correlation) {
  return connected() && connection_.Publish({topic, payload, response_topic, correlation});
}

}  // namespace desk
