// Properties of MQTT 5 messages, with an owner.
#pragma once

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>

namespace platform {

// Of a message that is sent.
struct Properties {
  mosquitto_property* list = nullptr;
  Properties() = default;
  ~Properties() { mosquitto_property_free_all(&list); }
  Properties(const Properties&) = delete;
  Properties& operator=(const Properties&) = delete;
};

// What a received message says of an answer.
class ReceivedProperties {
 public:
  explicit ReceivedProperties(const mosquitto_property* properties) {
    char* topic = nullptr;
    if (mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &topic, false) != nullptr) {
      topic_.reset(topic);
    }
    void* data = nullptr;
    if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &size_, false) != nullptr) {
      has_correlation_ = true;
      correlation_.reset(data);
    }
  }

  std::string_view response_topic() const { return topic_ ? topic_.get() : std::string_view(); }  // empty: none
  std::optional<std::string_view> correlation() const {
    if (!has_correlation_) return std::nullopt;
    return std::string_view(static_cast<const char*>(correlation_.get()), correlation_ ? size_ : 0);
  }

 private:
  struct FreeDeleter {
    void operator()(void* memory) const { std::free(memory); }
  };
  std::unique_ptr<char, FreeDeleter> topic_;
  bool has_correlation_ = false;
  std::unique_ptr<void, FreeDeleter> correlation_;
  uint16_t size_ = 0;
};

}  // namespace platform
