#include "hub_client.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cstdlib>
#include <utility>

#include "evt_loop.h"
#include "mqtt_link.h"
#include "mqtt_properties.h"
#include "signals.h"

namespace lxconn {

namespace {

constexpr timeval kHousekeeping = {1, 0};
constexpr timeval kAtOnce = {0, 0};

platform::MqttOptions Options(const HubAddress& address) {
  platform::MqttOptions options;
  options.host = address.host;
  options.port = address.port;
  options.tls = address.tls;
  options.ca = address.ca;
  options.client_id = address.client_id;
  options.user = address.user;
  options.password = address.password;
  options.will_topic = address.will_topic;
  options.will = address.will;
  options.connect_limit_ms = 0;
  options.accept_limit = std::chrono::seconds(10);  // TLS on a slow line, with a thousand others
  options.silence_limit = std::chrono::seconds(12);
  options.keep_alive_s = 20;  // the site is told soon that a device is gone
  options.tells_each_reason = true;
  options.log_source = "platform/linux/hub";
  options.name = "hub";
  return options;
}

std::vector<const char*> Names(const std::vector<std::string>& topics) {
  std::vector<const char*> names;
  names.reserve(topics.size());
  for (const std::string& topic : topics) names.push_back(topic.c_str());
  return names;
}

}  // namespace

struct HubClient::Impl final : private platform::MqttLink::Listener {
  Impl(EVT_LOOP* loop, HubClient::Listener* its_listener)
      : base(loop->shared_from_this()), link(base->base(), {}, this), listener(its_listener) {
    platform::IgnoreBrokenPipes();
    mosquitto_lib_init();
    tick.reset(event_new(base->base(), -1, EV_PERSIST, &Impl::OnTick, this));
    event_add(tick.get(), &kHousekeeping);
    failed.reset(evtimer_new(base->base(), &Impl::OnFailed, this));
  }
  virtual ~Impl() { mosquitto_lib_cleanup(); }

  void OnMqttUp() override { listener->OnHubUp(); }
  void OnMqttSubscribed() override { listener->OnHubSubscribed(); }
  void OnMqttServed() override {
    AtCallbackEdge("hub", [this] { listener->OnHubServed(); });
  }
  // Told from the loop: the link may be in the middle of a call of the listener's.
  void OnMqttDown() override { evtimer_add(failed.get(), &kAtOnce); }
  void OnMqttMessage(const mosquitto_message& message, const mosquitto_property* properties) override {
    const platform::ReceivedProperties received(properties);
    HubDelivery delivery;
    delivery.topic = message.topic;
    delivery.payload = {static_cast<const char*>(message.payload), static_cast<size_t>(message.payloadlen)};
    delivery.kept = message.retain;
    delivery.response_topic = received.response_topic();
    delivery.correlation = received.correlation();
    listener->OnHubMessage(delivery);
  }

  static void OnTick(evutil_socket_t, short, void* self) { static_cast<Impl*>(self)->link.Tick(); }
  static void OnFailed(evutil_socket_t, short, void* self) {
    AtCallbackEdge("hub", [&] { static_cast<Impl*>(self)->listener->OnHubDown(); });
  }

  const std::shared_ptr<EVT_LOOP> base;
  platform::MqttLink link;
  HubClient::Listener* const listener;
  EventPtr tick;
  EventPtr failed;
};

HubClient::HubClient(EVT_LOOP* loop, Listener* listener) : impl_(new Impl(loop, listener)) {}
HubClient::~HubClient() = default;

void HubClient::Connect(const HubAddress& address) {
  if (impl_->link.IsUp() || impl_->link.IsConnecting()) impl_->link.Close(false);
  event_del(impl_->failed.get());
  impl_->link.SetOptions(Options(address));
  impl_->link.Connect();
}

void HubClient::Disconnect() {
  impl_->link.Close(true);
  event_del(impl_->failed.get());
}

bool HubClient::Subscribe(const std::vector<std::string>& topics) {
  return impl_->link.Subscribe(Names(topics).data(), static_cast<int>(topics.size()));
}

bool HubClient::Unsubscribe(const std::vector<std::string>& topics) {
  return impl_->link.Unsubscribe(Names(topics).data(), static_cast<int>(topics.size()));
}

bool HubClient::Publish(const HubPublication& publication) {
  platform::Properties properties;
  if (publication.expiry_s > 0) {
    mosquitto_property_add_int32(&properties.list, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, publication.expiry_s);
  }
  if (publication.correlation) {
    mosquitto_property_add_binary(&properties.list, MQTT_PROP_CORRELATION_DATA, publication.correlation->data(),
                                  static_cast<uint16_t>(publication.correlation->size()));
  }
  return impl_->link.Publish(std::string(publication.topic).c_str(), publication.payload.data(),
                             static_cast<uint32_t>(publication.payload.size()), properties.list, publication.retained);
}

}  // namespace lxconn
