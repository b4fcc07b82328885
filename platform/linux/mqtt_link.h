// One connection to the MQTT broker, driven by the event loop: connecting, reading, writing and noticing that the
// broker is gone. What the messages mean is the listener's business.
#pragma once

#include <mosquitto.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "evt_loop.h"

namespace platform {

class MqttLink {
 public:
  class Listener {
   public:
    virtual void OnMqttMessage(const mosquitto_message& message, const mosquitto_property* properties) = 0;
    virtual void OnMqttDown() = 0;

   protected:
    ~Listener() = default;
  };

  MqttLink(event_base* base, std::string host, uint16_t port, Listener* listener);
  MqttLink(const MqttLink&) = delete;
  MqttLink& operator=(const MqttLink&) = delete;

  // Begins a new connection, unless there is one. True when the broker's port took it: subscriptions and messages
  // may follow at once, and the broker reads them after it has accepted the connection. Never waits long; a broker
  // that does not accept within a few seconds counts as down.
  bool Connect();

  bool IsUp() const { return read_event_ != nullptr; }

  bool Subscribe(const char* const* topics, int count);

  // QoS 0, not retained. A message that cannot be sent now is dropped and counted.
  bool Publish(const char* topic, const void* data, uint32_t size, const mosquitto_property* properties);

  // Once a second while up: keep-alive and time limits.
  void Tick();

 private:
  struct ClientDeleter {
    void operator()(mosquitto* client) const { mosquitto_destroy(client); }
  };

  bool MakeClient();
  bool WatchSocket();
  void AfterLibraryCall(int result);
  void Flush();
  void Down(const char* reason);
  void Drop();
  void ReportDropped();

  static void OnReadable(evutil_socket_t, short, void* self);
  static void OnWritable(evutil_socket_t, short, void* self);
  static void OnConnect(mosquitto*, void* self, int reason, int flags, const mosquitto_property*);
  static void OnSubscribe(mosquitto*, void* self, int, int count, const int* granted, const mosquitto_property*);
  static void OnMessage(mosquitto*, void* self, const mosquitto_message* message, const mosquitto_property* properties);

  event_base* const base_;
  const std::string host_;
  const uint16_t port_;
  Listener* const listener_;

  std::unique_ptr<mosquitto, ClientDeleter> client_;  // a new one for each connection: nothing old is left in it
  lxconn::EventPtr read_event_;                       // both go before the client that closes their descriptor
  lxconn::EventPtr write_event_;
  std::chrono::steady_clock::time_point began_;
  bool accepted_ = false;          // the broker has answered
  bool in_callback_ = false;       // the library only queues meanwhile
  const char* refusal_ = nullptr;  // what the broker answered instead
  bool down_logged_ = false;
  uint64_t unsent_bytes_ = 0;  // at most these, handed to the library since the socket last took all there was
  uint64_t early_ = 0;         // messages sent before the broker accepted: lost if it never does
  uint64_t dropped_ = 0;
};

}  // namespace platform
