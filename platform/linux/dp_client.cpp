// The message bus over MQTT 5: the topic is the type name, and a request's answer goes to its response topic.
#include "dp_client.h"

#include <malloc.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "bus_account.h"
#include "bus_messages.h"
#include "end_signals.h"
#include "evt_loop.h"
#include "lx_logging.h"
#include "mqtt_link.h"
#include "mqtt_properties.h"
#include "shell.h"
#include "signals.h"
#include "watchdog.h"

namespace {

constexpr char kLogSource[] = "platform/linux/bus";

constexpr unsigned kTickMs = 1000;
constexpr size_t kMaxIdleBuffer = 64 * 1024;
constexpr std::chrono::seconds kSilenceLimit(20);
constexpr size_t kShownTopic = 80;

}  // namespace

// The bus client: there is one, and its address is the poll handle.
struct DpPollHandle final : private platform::MqttLink::Listener {
 public:
  explicit DpPollHandle(platform::MqttOptions options)
      : loop_(std::make_shared<lxconn::EVT_LOOP>()),
        link_(loop_->base(), std::move(options), this),
        end_(loop_->base(), [this] { Report(kDpStatusEnding); }) {
    tick_.reset(evtimer_new(loop_->base(), &DpPollHandle::OnTick, this));
  }

  platform::MqttLink& link() { return link_; }
  lxconn::EVT_LOOP* loop() const { return loop_.get(); }

  void SetCallbacks(DpMsgCallback on_message, void* user, DpStatusCallback on_status) {
    on_message_ = on_message;
    on_status_ = on_status;
    user_ = user;
    ScheduleTick(link_.IsUp() ? kTickMs : 0);
  }

  bool Answer(const char* type_name, uint32_t message_id, const void* data, uint32_t size);

 private:
  using Clock = std::chrono::steady_clock;

  void OnMqttMessage(const mosquitto_message& message, const mosquitto_property* properties) override;
  void OnMqttDown() override;
  void ScheduleTick(unsigned milliseconds);
  void Tick();
  void Report(unsigned status);
  static void OnTick(evutil_socket_t, short, void* self) { static_cast<DpPollHandle*>(self)->Tick(); }

  const std::shared_ptr<lxconn::EVT_LOOP> loop_;
  platform::MqttLink link_;
  lxconn::EventPtr tick_;
  DpMsgCallback on_message_ = nullptr;
  DpStatusCallback on_status_ = nullptr;
  void* user_ = nullptr;
  Clock::time_point next_report_;  // of status 101, not before
  platform::RecordBuffer buffer_;
  // The request that is being handled: its answer is sent before its handler returns, or never.
  uint32_t message_id_ = 0;
  std::optional<platform::ReplyAddress> reply_to_;
  platform::EndSignals end_;
};

void DpPollHandle::ScheduleTick(unsigned milliseconds) {
  const timeval delay = {static_cast<time_t>(milliseconds / 1000),
                         static_cast<suseconds_t>(milliseconds % 1000 * 1000)};
  evtimer_add(tick_.get(), &delay);
}

// Lost connections are reported at once, but a broker that accepts and drops them is not asked more than once a second.
void DpPollHandle::OnMqttDown() {
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next_report_ - Clock::now()).count();
  ScheduleTick(static_cast<unsigned>(std::clamp<long long>(wait, 0, kTickMs)));
}

void DpPollHandle::Report(unsigned status) {
  if (on_status_ == nullptr) return;
  lxconn::AtCallbackEdge("status", [&] { on_status_(this, status, user_); });
}

void DpPollHandle::Tick() {
  link_.Tick();
  ScheduleTick(kTickMs);
  if (link_.IsAccepted()) return;
  next_report_ = Clock::now() + std::chrono::milliseconds(kTickMs);
  Report(kDpStatusDisconnected);
}

void DpPollHandle::OnMqttMessage(const mosquitto_message& message, const mosquitto_property* properties) {
  if (on_message_ == nullptr) return;
  reply_to_ = platform::ReplyAddressOf(message, properties);
  if (!reply_to_) {
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << "a message asks for an answer where none is given, and gets none: "
        << std::string_view(message.topic).substr(0, kShownTopic);
  }
  on_message_(this, platform::FillRecord(message, ++message_id_, &buffer_), user_);
  reply_to_.reset();
  if (buffer_.size() * sizeof(_TagDpMsg) > kMaxIdleBuffer) {
    platform::RecordBuffer().swap(buffer_);
    malloc_trim(0);  // what a large document took is the system's again
  }
  ReportProgress();
}

bool DpPollHandle::Answer(const char* type_name, uint32_t message_id, const void* data, uint32_t size) {
  if (!reply_to_ || message_id != message_id_) {
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << "no request waits for the answer to " << type_name << " " << message_id;
    return false;
  }
  const platform::ReplyAddress to = std::move(*reply_to_);
  reply_to_.reset();
  platform::Properties properties;
  if (to.has_correlation) {
    mosquitto_property_add_binary(&properties.list, MQTT_PROP_CORRELATION_DATA, to.correlation.data(),
                                  static_cast<uint16_t>(to.correlation.size()));
  }
  return link_.Publish(to.topic.c_str(), data, size, properties.list);
}

namespace {

struct Address {
  std::string host;
  uint16_t port = 0;
  std::string account = platform::kDaemonRole;
};
Address address;
std::unique_ptr<DpPollHandle> client;

constexpr int Result(bool ok) { return ok ? 1 : -1; }

}  // namespace

int DpClient_Init(const char* host, uint16_t port) {
  if (host == nullptr) return -1;
  address.host = host;
  address.port = port;
  return 1;
}

void DpClient_UseAccount(const char* account) { address.account = account; }

int DpClient_Start(int /*mode*/) {
  if (client) return 1;
  platform::IgnoreBrokenPipes();
  if (mosquitto_lib_init() != MOSQ_ERR_SUCCESS) return -1;
  platform::MqttOptions options;
  options.host = address.host;
  options.port = address.port;
  options.role = address.account;
  options.silence_limit = kSilenceLimit;
  client = std::make_unique<DpPollHandle>(std::move(options));
  client->link().Connect();
  return 1;
}

int DpClient_Stop() {
  if (!client) return -1;
  client.reset();
  mosquitto_lib_cleanup();
  return 1;
}

DpPollHandle* DpClient_CreatePollHandle(DpMsgCallback on_message, void* user, DpStatusCallback on_status, int, int) {
  if (client) client->SetCallbacks(on_message, user, on_status);
  return client.get();
}

int DpClient_HdlAddListenMessage(DpPollHandle* handle, const char* const* type_names, int count) {
  return Result(handle != nullptr && handle->link().Subscribe(type_names, count));
}

int DpClient_HdlReConnect(DpPollHandle* handle) { return Result(handle != nullptr && handle->link().Connect()); }

lxconn::EVT_LOOP* DpClient_GetEvtLoopFromPoll(DpPollHandle* handle) {
  return handle != nullptr ? handle->loop() : nullptr;
}

int DpClient_PollDpMessage(DpPollHandle* handle, int timeout) {
  if (handle == nullptr) SleepMicroseconds(static_cast<unsigned>(timeout) * 1000);  // callers poll for ever
  return Result(handle != nullptr && event_base_loop(handle->loop()->base(), EVLOOP_ONCE) == 0);
}

int DpClient_SendDpMessage(const char* type_name, int, const void* data, uint32_t size) {
  return Result(client && client->link().Publish(type_name, data, size, nullptr));
}

int DpClient_SendDpReply(const char* type_name, int, uint32_t message_id, const void* data, uint32_t size) {
  return Result(client && client->Answer(type_name, message_id, data, size));
}
