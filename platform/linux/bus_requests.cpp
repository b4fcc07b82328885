#include "bus_requests.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <unistd.h>

#include <charconv>
#include <string>

#include "evt_loop.h"
#include "mqtt_link.h"
#include "mqtt_properties.h"
#include "signals.h"

namespace lxconn {

namespace {

constexpr timeval kTick = {1, 0};

platform::MqttOptions Options(const char* host, uint16_t port, const char* account) {
  platform::MqttOptions options;
  options.host = host;
  options.port = port;
  options.role = account;
  options.name = "bus for requests";
  return options;
}

}  // namespace

struct BusRequester::Impl final : private platform::MqttLink::Listener {
  Impl(EVT_LOOP* loop, const char* host, uint16_t port, const char* account, AnswerCallback callback, void* its_user)
      : base(loop->shared_from_this()),
        link(base->base(), Options(host, port, account), this),
        reply_topic(std::string("reply/") + account + "/" + std::to_string(getpid())),
        on_answer(callback),
        user(its_user) {
    platform::IgnoreBrokenPipes();
    mosquitto_lib_init();
    tick.reset(event_new(base->base(), -1, EV_PERSIST, &Impl::OnTick, this));
    event_add(tick.get(), &kTick);
    Connect();
  }
  virtual ~Impl() {
    link.Close(true);
    mosquitto_lib_cleanup();
  }

  // The subscription goes first: a request may follow at once.
  void Connect() {
    const char* const topic = reply_topic.c_str();
    if (link.Connect()) link.Subscribe(&topic, 1);
  }
  void OnMqttDown() override {}  // the next tick tries again
  void OnMqttMessage(const mosquitto_message& message, const mosquitto_property* properties) override {
    const platform::ReceivedProperties received(properties);
    const std::string_view text = received.correlation().value_or("");
    uint64_t id = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
    if (error != std::errc() || end != text.data() + text.size()) return;
    on_answer(id, {static_cast<const char*>(message.payload), static_cast<size_t>(message.payloadlen)}, user);
  }

  static void OnTick(evutil_socket_t, short, void* self) {
    auto* const impl = static_cast<Impl*>(self);
    if (impl->link.IsUp()) {
      impl->link.Tick();
    } else {
      impl->Connect();
    }
  }

  const std::shared_ptr<EVT_LOOP> base;
  platform::MqttLink link;
  const std::string reply_topic;
  const AnswerCallback on_answer;
  void* const user;
  EventPtr tick;
};

BusRequester::BusRequester(EVT_LOOP* loop, const char* host, uint16_t port, const char* account,
                           AnswerCallback on_answer, void* user)
    : impl_(new Impl(loop, host, port, account, on_answer, user)) {}
BusRequester::~BusRequester() = default;

bool BusRequester::Ask(const char* type_name, uint64_t id, std::string_view request) {
  platform::Properties properties;
  const std::string correlation = std::to_string(id);
  mosquitto_property_add_string(&properties.list, MQTT_PROP_RESPONSE_TOPIC, impl_->reply_topic.c_str());
  mosquitto_property_add_binary(&properties.list, MQTT_PROP_CORRELATION_DATA, correlation.data(),
                                static_cast<uint16_t>(correlation.size()));
  return impl_->link.Publish(type_name, request.data(), static_cast<uint32_t>(request.size()), properties.list);
}

}  // namespace lxconn
