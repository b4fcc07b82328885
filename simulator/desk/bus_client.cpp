#include "desk/bus_client.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cstdlib>

namespace desk {
namespace {

constexpr int kBusPort = 5291;
constexpr int kKeepAliveSeconds = 10;
constexpr Loop::Milliseconds kUpkeep(100);
constexpr char kEverything[] = "#";

struct Properties {
  mosquitto_property* list = nullptr;
  ~Properties() { mosquitto_property_free_all(&list); }
};

std::string TextProperty(const mosquitto_property* properties, int number) {
  char* value = nullptr;
  if (mosquitto_property_read_string(properties, number, &value, false) == nullptr) return "";
  std::string text = value;
  free(value);
  return text;
}

std::string BinaryProperty(const mosquitto_property* properties, int number) {
  void* value = nullptr;
  uint16_t size = 0;
  if (mosquitto_property_read_binary(properties, number, &value, &size, false) == nullptr) return "";
  std::string bytes(static_cast<const char*>(value), size);
  free(value);
  return bytes;
}

}  // namespace

BusClient::BusClient(Loop& loop) : loop_(loop) {
  mosquitto_lib_init();
  client_ = mosquitto_new(nullptr, true, this);
  mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client_, MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_connect_v5_callback_set(client_, [](mosquitto* client, void*, int reason, int, const mosquitto_property*) {
    if (reason != 0) return;
    mosquitto_subscribe_v5(client, nullptr, kEverything, 0, MQTT_SUB_OPT_NO_LOCAL, nullptr);
  });
  mosquitto_subscribe_callback_set(
      client_, [](mosquitto*, void* self, int, int, const int*) { static_cast<BusClient*>(self)->subscribed_ = true; });
  mosquitto_message_v5_callback_set(
      client_, [](mosquitto*, void* self, const mosquitto_message* message, const mosquitto_property* properties) {
        static_cast<BusClient*>(self)->Received(message, properties);
      });
}

BusClient::~BusClient() {
  loop_.Cancel(upkeep_);
  if (descriptor_ >= 0) loop_.Unwatch(descriptor_);
  mosquitto_destroy(client_);
  mosquitto_lib_cleanup();
}

void BusClient::Start() {
  upkeep_ = loop_.Every(kUpkeep, [this] {
    if (descriptor_ < 0) {
      Connect();
    } else if (mosquitto_loop_misc(client_) != MOSQ_ERR_SUCCESS) {
      Disconnected();
    } else {
      Flush();
    }
  });
  Connect();
}

void BusClient::Connect() {
  if (mosquitto_connect(client_, "127.0.0.1", kBusPort, kKeepAliveSeconds) != MOSQ_ERR_SUCCESS) return;
  descriptor_ = mosquitto_socket(client_);
  loop_.Watch(
      descriptor_, [this] { Serve(); }, [this] { return mosquitto_want_write(client_); });
}

// The library has closed its descriptor by now.
void BusClient::Disconnected() {
  loop_.Unwatch(descriptor_);
  descriptor_ = -1;
  subscribed_ = false;
}

void BusClient::Serve() {
  if (mosquitto_loop_read(client_, 1) != MOSQ_ERR_SUCCESS) {
    Disconnected();
  } else {
    Flush();
  }
}

void BusClient::Flush() {
  if (mosquitto_want_write(client_) && mosquitto_loop_write(client_, 1) != MOSQ_ERR_SUCCESS) Disconnected();
}

bool BusClient::Send(const std::string& topic, const std::string& payload, const mosquitto_property* properties) {
  if (!subscribed_) return false;
  const int result = mosquitto_publish_v5(client_, nullptr, topic.c_str(), static_cast<int>(payload.size()),
                                          payload.data(), 0, false, properties);
  if (result != MOSQ_ERR_SUCCESS) return false;
  Flush();
  return descriptor_ >= 0;
}

bool BusClient::Publish(const std::string& topic, const std::string& payload) { return Send(topic, payload, nullptr); }

bool BusClient::Request(const std::string& topic, const std::string& payload, const std::string& response_topic,
                        const std::string& correlation) {
  Properties properties;
  mosquitto_property_add_string(&properties.list, MQTT_PROP_RESPONSE_TOPIC, response_topic.c_str());
  mosquitto_property_add_binary(&properties.list, MQTT_PROP_CORRELATION_DATA, correlation.data(),
                                static_cast<uint16_t>(correlation.size()));
  return Send(topic, payload, properties.list);
}

void BusClient::Received(const mosquitto_message* message, const mosquitto_property* properties) {
  if (!handler_) return;
  BusMessage received;
  received.topic = message->topic;
  received.payload.assign(static_cast<const char*>(message->payload), static_cast<size_t>(message->payloadlen));
  received.response_topic = TextProperty(properties, MQTT_PROP_RESPONSE_TOPIC);
  received.correlation = BinaryProperty(properties, MQTT_PROP_CORRELATION_DATA);
  handler_(received);
}

}  // namespace desk
