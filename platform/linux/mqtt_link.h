// One connection to the MQTT broker, driven by the event loop: connecting, reading, writing and noticing that the
// broker is gone. What the messages mean is the listener's business.
#pragma once

#include <mosquitto.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "evt_loop.h"
#include "mqtt_tls.h"

namespace platform {

// Which broker, and how to speak with it. What is left alone suits a broker on this machine.
struct MqttOptions {
  std::string host;
  uint16_t port = 0;
  std::string role;  // account on this device's bus (bus_account.h); empty: user and password
  std::string user;  // empty: nobody
  std::string password;
  std::string client_id;   // empty: the broker chooses
  std::string will_topic;  // retained; empty: no will
  std::string will;
  bool tls = false;
  std::string ca;  // file; empty: the system's certificates
  std::chrono::seconds accept_limit{5};
  // On this machine a port takes or refuses a connection at once, unless the broker hangs and its backlog is full.
  int connect_limit_ms = 50;
  // The broker gives up on a client that it has not heard for one and a half times this. What holds the loop of a
  // program on this machine up most is a shell command.
  int keep_alive_s = 120;
  // A broker that says nothing for so long is asked for a sign of life, and is gone after twice that, in seconds in
  // which this side was there to hear one; 0: only the keep-alive tells, on this side after twice its time.
  std::chrono::seconds silence_limit{0};
  bool tells_each_reason = false;  // logs a new reason for an outage that goes on
  const char* log_source = "platform/linux/bus";
  const char* name = "bus";  // in the log
};

class MqttLink {
 public:
  class Listener {
   public:
    virtual void OnMqttMessage(const mosquitto_message& message, const mosquitto_property* properties) = 0;
    virtual void OnMqttUp() {}  // the broker has accepted the connection
    virtual void OnMqttSubscribed() {}
    virtual void OnMqttServed() {}  // what arrived was handed over: here the connection may be closed
    virtual void OnMqttDown() = 0;

   protected:
    ~Listener() = default;
  };

  MqttLink(event_base* base, MqttOptions options, Listener* listener);
  MqttLink(const MqttLink&) = delete;
  MqttLink& operator=(const MqttLink&) = delete;

  // Begins a new connection, unless there is one. True when the broker's port took it: subscriptions and messages
  // may follow at once, and the broker reads them after it has accepted the connection. Never waits long; a broker
  // that does not accept within a few seconds counts as down. False, too, while a connection is being made already, or
  // the name of the broker's host is being looked up (IsConnecting).
  bool Connect();

  bool IsUp() const { return read_event_ != nullptr; }
  bool IsAccepted() const { return accepted_; }
  bool IsConnecting() const { return lookup_ != nullptr; }

  // Other options from the next connection on.
  void SetOptions(MqttOptions options) { options_ = std::move(options); }

  // Ends the connection: with goodbye after what was sent before, or without.
  void Close(bool goodbye);

  bool Subscribe(const char* const* topics, int count);
  bool Unsubscribe(const char* const* topics, int count);

  // QoS 0. A message that cannot be sent now is dropped and counted.
  bool Publish(const char* topic, const void* data, uint32_t size, const mosquitto_property* properties,
               bool retained = false);

  // Once a second while up: keep-alive and time limits.
  void Tick();

 private:
  struct ClientDeleter {
    void operator()(mosquitto* client) const { mosquitto_destroy(client); }
  };

  struct Lookup;

  bool MakeClient();
  bool BeginLookup();
  bool TakeConnection(int result);
  bool WatchSocket();
  void LetIn();
  void CheckLife();
  void Read();
  bool IsConnected();
  void AfterLibraryCall(int result);
  void Log(int level, int line, const std::string& text) const;
  void Flush();
  void Down(const char* reason);
  void Drop();
  void ReportDropped();

  static void OnLetIn(evutil_socket_t, short, void* self) { static_cast<MqttLink*>(self)->LetIn(); }
  static void OnReadable(evutil_socket_t, short, void* self);
  static void OnWritable(evutil_socket_t, short, void* self);
  static void OnLookedUp(evutil_socket_t, short, void* self);
  static void OnConnect(mosquitto*, void* self, int reason, int flags, const mosquitto_property*);
  static void OnSubscribe(mosquitto*, void* self, int, int count, const int* granted, const mosquitto_property*);
  static void OnMessage(mosquitto*, void* self, const mosquitto_message* message, const mosquitto_property* properties);

  event_base* const base_;
  MqttOptions options_;
  Listener* const listener_;

  std::unique_ptr<mosquitto, ClientDeleter> client_;  // a new one for each connection: nothing old is left in it
  lxconn::EventPtr read_event_;                       // both go before the client that closes their descriptor
  lxconn::EventPtr write_event_;
  std::shared_ptr<TlsVerdict> tls_verdict_;  // null without TLS
  std::shared_ptr<Lookup> lookup_;           // while the host's name is looked up
  std::weak_ptr<Lookup> last_lookup_;        // which may go on after it was given up
  lxconn::EventPtr lookup_event_;
  std::chrono::steady_clock::time_point began_;
  int silent_ticks_ = 0;           // since the broker was heard
  std::optional<uid_t> owner_;     // of the broker, where it must be known before the login is sent
  lxconn::EventPtr let_in_event_;  // while it is not
  bool held_ = false;              // nothing is sent or read yet
  bool connected_ = false;         // the port has answered
  bool accepted_ = false;          // the broker has answered
  bool in_callback_ = false;       // the library only queues meanwhile
  std::string refusal_;            // what the broker answered instead, or what is wrong on this side
  bool down_logged_ = false;
  std::string logged_reason_;
  uint64_t unsent_bytes_ = 0;  // at most these, handed to the library since the socket last took all there was
  uint64_t early_ = 0;         // messages sent before the broker accepted: lost if it never does
  uint64_t dropped_ = 0;
};

}  // namespace platform
