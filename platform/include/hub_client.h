// The connection to the site's hub, a message broker beyond this device (MQTT 5): retained messages, accounts, a last
// will, TLS. One connection at a time. Everything belongs to the one event-loop thread; nothing is kept for later, and
// no call waits for the network.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lxconn {

class EVT_LOOP;

struct HubAddress {
  std::string host;
  uint16_t port = 0;
  bool tls = false;  // then the hub's certificate and name are verified, always
  std::string ca;    // file with the certificates that the hub's must go back to; empty: the system's
  std::string client_id;
  std::string user;  // empty: nobody
  std::string password;
  std::string will_topic;  // the broker keeps the will there when the connection ends without goodbye
  std::string will;
};

struct HubPublication {
  std::string_view topic;
  std::string_view payload;
  bool retained = false;
  uint32_t expiry_s = 0;  // 0: none
  std::optional<std::string_view> correlation;
};

// The views end with the callback.
struct HubDelivery {
  std::string_view topic;
  std::string_view payload;
  bool kept = false;                // the hub held it before the subscription
  std::string_view response_topic;  // empty: none
  std::optional<std::string_view> correlation;
};

class HubClient {
 public:
  class Listener {
   public:
    virtual void OnHubUp() = 0;
    // The attempt failed or the connection is lost; not called for Disconnect.
    virtual void OnHubDown() = 0;
    virtual void OnHubSubscribed() = 0;  // once for each Subscribe that the hub has carried out or refused
    virtual void OnHubMessage(const HubDelivery& message) = 0;
    // After one or more of these: here, and not there, the client may be called.
    virtual void OnHubServed() = 0;

   protected:
    ~Listener() = default;
  };

  HubClient(EVT_LOOP* loop, Listener* listener);
  ~HubClient();  // without goodbye
  HubClient(const HubClient&) = delete;
  HubClient& operator=(const HubClient&) = delete;

  // Begins a connection; an earlier one ends without goodbye. OnHubUp or OnHubDown follows, not before this returns. A
  // hub that accepts and never answers, and one that falls silent later, is down within 30 s. Why is logged.
  void Connect(const HubAddress& address);

  // Ends the connection in order: what was published goes out first, as far as the network takes it at once.
  void Disconnect();

  // QoS 0. What cannot be sent now is dropped. False then, and where there is no connection.
  bool Subscribe(const std::vector<std::string>& topics);
  bool Unsubscribe(const std::vector<std::string>& topics);
  bool Publish(const HubPublication& publication);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace lxconn
