// The message bus over MQTT 5: the topic is the type name, and a request's answer goes to its response topic.
#include "dp_client.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "evt_loop.h"
#include "lx_logging.h"
#include "mqtt_link.h"
#include "signals.h"

namespace {

constexpr char kLogSource[] = "platform/linux/bus";

constexpr unsigned kTickMs = 1000;
// Handlers answer before they return: the rest are requests of types that nobody answers.
constexpr size_t kMaxWaitingRequests = 256;
constexpr size_t kMaxIdleBuffer = 64 * 1024;
constexpr size_t kMaxTypeName = sizeof(_TagDpMsg::type_name) - 1;

struct FreeDeleter {
  void operator()(void* memory) const { std::free(memory); }
};

struct Properties {
  mosquitto_property* list = nullptr;
  Properties() = default;
  ~Properties() { mosquitto_property_free_all(&list); }
  Properties(const Properties&) = delete;
  Properties& operator=(const Properties&) = delete;
};

// Where the answer to a request goes.
struct WaitingRequest {
  uint32_t message_id = 0;
  std::string response_topic;
  bool has_correlation = false;
  std::string correlation;
};

// Ids of requests with a response topic are odd, all others even: an answer to a request that is no longer known is
// then not mistaken for one that everybody may read.
constexpr bool HasResponseTopic(uint32_t message_id) { return (message_id & 1) != 0; }

bool ReadWaitingRequest(const mosquitto_property* properties, WaitingRequest* request) {
  char* topic = nullptr;
  if (mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &topic, false) == nullptr) return false;
  const std::unique_ptr<char, FreeDeleter> topic_owner(topic);
  if (topic == nullptr || *topic == '\0') return false;
  request->response_topic = topic;

  void* data = nullptr;
  uint16_t size = 0;
  request->has_correlation =
      mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &size, false) != nullptr;
  const std::unique_ptr<void, FreeDeleter> data_owner(data);
  if (data != nullptr) request->correlation.assign(static_cast<const char*>(data), size);
  return true;
}

}  // namespace

// The bus client: there is one, and its address is the poll handle.
struct DpPollHandle final : private platform::MqttLink::Listener {
 public:
  DpPollHandle(const std::string& host, uint16_t port)
      : loop_(std::make_shared<lxconn::EVT_LOOP>()), link_(loop_->base(), host, port, this) {
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
  uint32_t RememberRequest(const mosquitto_property* properties);
  static void OnTick(evutil_socket_t, short, void* self) { static_cast<DpPollHandle*>(self)->Tick(); }

  const std::shared_ptr<lxconn::EVT_LOOP> loop_;
  platform::MqttLink link_;
  lxconn::EventPtr tick_;
  DpMsgCallback on_message_ = nullptr;
  DpStatusCallback on_status_ = nullptr;
  void* user_ = nullptr;
  Clock::time_point next_report_;       // of status 101, not before
  std::deque<WaitingRequest> waiting_;  // oldest first
  uint32_t last_id_ = 0;
  std::vector<_TagDpMsg> buffer_;  // record and payload; its element's size keeps it aligned
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

void DpPollHandle::Tick() {
  ScheduleTick(kTickMs);
  if (link_.IsUp()) {
    link_.Tick();
    return;
  }
  next_report_ = Clock::now() + std::chrono::milliseconds(kTickMs);
  if (on_status_ != nullptr) {
    lxconn::AtCallbackEdge("status", [this] { on_status_(this, kDpStatusDisconnected, user_); });
  }
}

uint32_t DpPollHandle::RememberRequest(const mosquitto_property* properties) {
  last_id_ = (last_id_ | 1) + 1;
  WaitingRequest request;
  if (!ReadWaitingRequest(properties, &request)) return last_id_;
  request.message_id = last_id_ | 1;
  if (waiting_.size() >= kMaxWaitingRequests) waiting_.pop_front();
  waiting_.push_back(std::move(request));
  return waiting_.back().message_id;
}

void DpPollHandle::OnMqttMessage(const mosquitto_message& message, const mosquitto_property* properties) {
  if (on_message_ == nullptr) return;
  const size_t size = static_cast<size_t>(message.payloadlen);
  const size_t records = 1 + size / sizeof(_TagDpMsg) + 1;  // at least one byte more than the payload
  if (buffer_.size() < records) buffer_.resize(records);

  _TagDpMsg& record = buffer_[0] = {};
  const size_t name_length = strnlen(message.topic, kMaxTypeName);
  record.type_name_len = static_cast<uint8_t>(name_length);
  memcpy(record.type_name, message.topic, name_length);
  record.message_id = RememberRequest(properties);
  record.data_size = static_cast<uint32_t>(size);
  char* const payload = reinterpret_cast<char*>(&record + 1);
  if (size > 0) memcpy(payload, message.payload, size);
  payload[size] = '\0';

  on_message_(this, &record, user_);
  if (buffer_.size() * sizeof(_TagDpMsg) > kMaxIdleBuffer) std::vector<_TagDpMsg>().swap(buffer_);
}

bool DpPollHandle::Answer(const char* type_name, uint32_t message_id, const void* data, uint32_t size) {
  if (!HasResponseTopic(message_id)) {
    return link_.Publish((std::string(type_name) + "/reply").c_str(), data, size, nullptr);
  }
  // From the newest, which is nearly always the one.
  const auto found = std::find_if(waiting_.rbegin(), waiting_.rend(),
                                  [&](const WaitingRequest& request) { return request.message_id == message_id; });
  if (found == waiting_.rend()) {
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << "no request waits for the answer to " << type_name << " " << message_id;
    return false;
  }
  const WaitingRequest request = std::move(*found);
  waiting_.erase(std::next(found).base());
  Properties properties;
  if (request.has_correlation) {
    mosquitto_property_add_binary(&properties.list, MQTT_PROP_CORRELATION_DATA, request.correlation.data(),
                                  static_cast<uint16_t>(request.correlation.size()));
  }
  return link_.Publish(request.response_topic.c_str(), data, size, properties.list);
}

namespace {

struct Address {
  std::string host;
  uint16_t port = 0;
};
Address address;
std::unique_ptr<DpPollHandle> client;

constexpr int Result(bool ok) { return ok ? 1 : -1; }

}  // namespace

int DpClient_Init(const char* host, uint16_t port) {
  if (host == nullptr) return -1;
  address = {host, port};
  return 1;
}

int DpClient_Start(int /*mode*/) {
  if (client) return 1;
  platform::IgnoreBrokenPipes();
  if (mosquitto_lib_init() != MOSQ_ERR_SUCCESS) return -1;
  client = std::make_unique<DpPollHandle>(address.host, address.port);
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

int DpClient_PollDpMessage(DpPollHandle* handle, int /*timeout*/) {
  return Result(handle != nullptr && event_base_loop(handle->loop()->base(), EVLOOP_ONCE) == 0);
}

int DpClient_SendDpMessage(const char* type_name, int, const void* data, uint32_t size) {
  return Result(client && client->link().Publish(type_name, data, size, nullptr));
}

int DpClient_SendDpReply(const char* type_name, int, uint32_t message_id, const void* data, uint32_t size) {
  return Result(client && client->Answer(type_name, message_id, data, size));
}
