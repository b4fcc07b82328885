// One connection to an MQTT 5 broker: a device's own bus, or the hub of a site. Whoever owns it runs it from a loop of
// its own; nothing here waits, but for the name of a host to be resolved. When it is lost, a new object makes a new
// one.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "address.h"

struct mosquitto;
struct mosquitto_message;
struct mqtt5__property;

namespace bus {

struct Message {
  std::string topic;
  std::string payload;
  std::string response_topic{};  // where an answer is wanted, empty for none
  std::string correlation{};     // what that answer has to carry
  bool retained = false;         // received: kept by the broker from before
  int qos = 0;                   // 1: the broker says what it did with it
  uint32_t expiry_s = 0;         // the broker forgets it after these seconds, 0 for never
};

struct Options {
  Address address{};
  std::string user{};  // empty: nobody
  std::string password{};
  std::string role{};       // instead of user and password: a role on the device's bus (platform's bus_account.h)
  std::string ca{};         // file with the authorities to believe; empty: the machine's own
  std::string client_id{};  // empty: the broker gives one
  int keep_alive_s = 5;     // a broker that froze is noticed after about twice this
  std::function<int(const std::function<int()>& connect)> within{};  // calls connect where it belongs: other networks
};

class Connection {
 public:
  struct Handlers {
    std::function<void()> up{};  // the broker has accepted: subscribe here
    std::function<void(const Message&)> message{};
    std::function<void(int id, int reason)> confirmed{};  // a message was sent (QoS 0) or answered (QoS 1)
    std::function<void(int id, const std::vector<int>& granted)> subscribed{};
  };

  Connection(Options options, Handlers handlers);
  ~Connection();  // says goodbye
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Begins to connect. False when that failed at once.
  bool Begin();

  // For the loop: watch the descriptor (-1: the connection is over), for writing too where that is wanted, call Serve
  // when it is ready and Tick about once a second. Either returns false when the connection is over.
  int descriptor() const;
  bool WantsWrite() const;
  bool Serve();
  bool Tick();

  bool up() const { return up_; }
  bool refused() const { return refused_; }                // the broker wants an account, or another one
  const std::string& problem() const { return problem_; }  // why the connection is over, as part of a sentence

  // The number that confirmed and subscribed will name; nothing when it could not be sent.
  std::optional<int> Publish(const Message& message);
  std::optional<int> Subscribe(const std::vector<std::string>& filters, int qos = 0, bool own_messages = true);

 private:
  struct Deleter {
    void operator()(mosquitto* client) const;
  };

  void SetUp();
  bool LetIn();
  bool After(int result);
  bool Flush();
  void Lost(int result);
  void Received(const mosquitto_message& message, const mqtt5__property* properties);
  static void OnConnect(mosquitto*, void* self, int reason, int flags, const mqtt5__property*);
  static void OnDisconnect(mosquitto*, void* self, int reason, const mqtt5__property*);
  static void OnLog(mosquitto*, void* self, int level, const char* text);

  const Options options_;
  const Handlers handlers_;
  std::unique_ptr<mosquitto, Deleter> client_;
  std::optional<uid_t> owner_;  // of the broker, where a role's password is only for it
  bool connecting_ = false;     // the network has not yet answered
  bool up_ = false;
  bool over_ = false;
  bool refused_ = false;
  bool in_callback_ = false;  // the library only queues meanwhile
  std::string problem_;
  std::string logged_;  // the library's last complaint: the only place where it says what TLS did not like
};

}  // namespace bus
