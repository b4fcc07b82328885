#include "desk/bus_client.h"

namespace desk {

namespace {

bus::Options OptionsWithin(const Network* network) {
  bus::Options options;
  options.within = [network](const std::function<int()>& connect) {
    const Network::Inside inside(network);
    return connect();
  };
  return options;
}

}  // namespace

BusClient::BusClient(Loop& loop, const Network* network) : connection_(loop, OptionsWithin(network), Handlers()) {}

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
