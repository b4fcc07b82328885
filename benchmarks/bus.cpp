#include "bus.h"

#include <mqtt_protocol.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace bench {

namespace {

constexpr double kPatience = 10;
constexpr int kKeepAliveSeconds = 600;  // nothing is served between measurements

uint32_t TagOf(const mosquitto_property* properties) {
  void* data = nullptr;
  uint16_t size = 0;
  uint32_t tag = 0;
  mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &size, false);
  if (size == sizeof tag) memcpy(&tag, data, sizeof tag);
  free(data);
  return tag;
}

}  // namespace

double Now() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

Bus::Bus(uint16_t port) : client_(mosquitto_new(nullptr, true, this)) {
  mosquitto_int_option(client_.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client_.get(), MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_connect_v5_callback_set(client_.get(), [](mosquitto*, void* self, int, int, const mosquitto_property*) {
    static_cast<Bus*>(self)->ready_ = true;
  });
  mosquitto_subscribe_v5_callback_set(client_.get(),
                                      [](mosquitto*, void* self, int, int, const int*, const mosquitto_property*) {
                                        static_cast<Bus*>(self)->ready_ = true;
                                      });
  mosquitto_message_v5_callback_set(client_.get(), &Bus::OnArrival);
  const double begin = Now();
  while (mosquitto_connect(client_.get(), "127.0.0.1", port, kKeepAliveSeconds) != MOSQ_ERR_SUCCESS) {
    if (Now() - begin > kPatience) throw std::runtime_error("the broker does not accept");
    usleep(10000);
  }
  if (!ServeUntil([this] { return ready_; }, kPatience)) throw std::runtime_error("the broker does not answer");
  static unsigned count = 0;
  response_topic_ = "reply/bench/" + std::to_string(getpid()) + "/" + std::to_string(++count);
  Subscribe(response_topic_);
}

void Bus::Check(int result, const char* what) const {
  if (result != MOSQ_ERR_SUCCESS) throw std::runtime_error(std::string(what) + ": " + mosquitto_strerror(result));
}

void Bus::Subscribe(const std::string& topic) {
  ready_ = false;
  Check(mosquitto_subscribe(client_.get(), nullptr, topic.c_str(), 0), "subscribe");
  if (!ServeUntil([this] { return ready_; }, kPatience)) throw std::runtime_error("the broker does not confirm");
}

// What is still on its way comes all the same, to a receiver that is not there any more.
void Bus::Unsubscribe(const std::string& topic) {
  receiver_ = nullptr;
  Check(mosquitto_unsubscribe(client_.get(), nullptr, topic.c_str()), "unsubscribe");
  Serve(0);
}

void Bus::Publish(const char* topic, std::string_view payload) {
  Check(mosquitto_publish(client_.get(), nullptr, topic, static_cast<int>(payload.size()), payload.data(), 0, false),
        "publish");
}

void Bus::Request(const char* topic, std::string_view payload, uint32_t tag) {
  mosquitto_property* properties = nullptr;
  mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC, response_topic_.c_str());
  mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, &tag, sizeof tag);
  const int result = mosquitto_publish_v5(client_.get(), nullptr, topic, static_cast<int>(payload.size()),
                                          payload.data(), 0, false, properties);
  mosquitto_property_free_all(&properties);
  Check(result, "request");
}

std::string Bus::Ask(const char* topic, std::string_view payload, double limit_seconds) {
  answered_ = false;
  Request(topic, payload, ++last_tag_);
  if (!ServeUntil([this] { return answered_; }, limit_seconds)) {
    throw std::runtime_error(std::string("no answer on ") + topic + " to " + std::string(payload));
  }
  return answer_;
}

void Bus::Serve(int milliseconds) {
  const bool writing = mosquitto_want_write(client_.get());
  pollfd ready = {mosquitto_socket(client_.get()), static_cast<short>(writing ? POLLIN | POLLOUT : POLLIN), 0};
  if (poll(&ready, 1, milliseconds) <= 0) return;
  if ((ready.revents & POLLOUT) != 0) Check(mosquitto_loop_write(client_.get(), 1), "write");
  if ((ready.revents & ~POLLOUT) != 0) Check(mosquitto_loop_read(client_.get(), 1), "read");
}

bool Bus::ServeUntil(const std::function<bool()>& done, double limit_seconds) {
  const double limit = Now() + limit_seconds;
  while (!done()) {
    if (Now() > limit) return false;
    Serve(50);
  }
  return true;
}

void Bus::OnArrival(mosquitto*, void* self, const mosquitto_message* message, const mosquitto_property* properties) {
  auto* const bus = static_cast<Bus*>(self);
  const Message arrival{message->topic,
                        {static_cast<const char*>(message->payload), static_cast<size_t>(message->payloadlen)},
                        TagOf(properties)};
  if (arrival.tag != 0 && arrival.tag == bus->last_tag_ && !bus->answered_) {
    bus->answered_ = true;
    bus->answer_ = arrival.payload;
  } else if (bus->receiver_) {
    bus->receiver_(arrival);
  }
}

}  // namespace bench
