// One connection to the bus, driven by hand: what is not asked for is not read, so nothing runs beside a measurement.
#pragma once

#include <mosquitto.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace bench {

struct Message {
  std::string_view topic;
  std::string_view payload;
  uint32_t tag;  // the request's, where the message answers one; else 0
};

// Failures that leave nothing to measure are thrown as std::runtime_error.
class Bus {
 public:
  // Waits until the broker accepts, 10 s at most.
  explicit Bus(uint16_t port);
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  void Subscribe(const std::string& topic);  // returns when the broker has confirmed it
  void Unsubscribe(const std::string& topic);
  void OnMessage(std::function<void(const Message&)> receiver) { receiver_ = std::move(receiver); }

  void Publish(const char* topic, std::string_view payload);
  void Request(const char* topic, std::string_view payload, uint32_t tag);

  // One request and its answer. Throws after the limit.
  std::string Ask(const char* topic, std::string_view payload, double limit_seconds = 10);

  // Reads and writes what is ready, waiting for that at most so long.
  void Serve(int milliseconds);

  // Serves until it is done. False after the limit.
  bool ServeUntil(const std::function<bool()>& done, double limit_seconds);

 private:
  struct ClientDeleter {
    void operator()(mosquitto* client) const { mosquitto_destroy(client); }
  };
  static void OnArrival(mosquitto*, void* self, const mosquitto_message* message, const mosquitto_property* properties);
  void Check(int result, const char* what) const;

  std::unique_ptr<mosquitto, ClientDeleter> client_;
  std::string response_topic_;
  std::function<void(const Message&)> receiver_;
  uint32_t last_tag_ = 0;
  bool ready_ = false;  // connected, or the subscription under way confirmed
  bool answered_ = false;
  std::string answer_;
};

// Seconds since some fixed moment.
double Now();

}  // namespace bench
