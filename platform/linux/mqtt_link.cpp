#include "mqtt_link.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "bus_account.h"
#include "lx_logging.h"

namespace platform {

namespace {

constexpr char kLogSource[] = "platform/linux/bus";

// The broker gives up on a client after one and a half times this, and the client on the broker after twice this. It
// is long enough for a shell command or a broker that stands still for some seconds.
constexpr int kKeepAliveSeconds = 20;
constexpr auto kAcceptLimit = std::chrono::seconds(5);
// On this machine a port takes or refuses a connection at once, unless the broker hangs and its backlog is full.
constexpr int kConnectLimitMs = 50;
constexpr uint64_t kMaxUnsentBytes = 16 * 1024 * 1024;
constexpr uint64_t kMessageOverhead = 256;  // the library's record of one, and its headers

// 0 when the connection stands or is still being made, else why it failed.
int ConnectError(int fd) {
  pollfd connecting = {fd, POLLOUT, 0};
  if (poll(&connecting, 1, kConnectLimitMs) <= 0) return 0;
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

const char* Reason(int result) {
  switch (result) {
    case MOSQ_ERR_SUCCESS:
      return "the broker closed it";
    case MOSQ_ERR_ERRNO:
      return strerror(errno);
    case MOSQ_ERR_KEEPALIVE:
      return "the broker does not answer";
    default:
      return mosquitto_strerror(result);
  }
}

}  // namespace

MqttLink::MqttLink(event_base* base, std::string host, uint16_t port, Listener* listener)
    : base_(base), host_(std::move(host)), port_(port), listener_(listener) {}

bool MqttLink::Connect() {
  if (IsUp()) return true;
  if (in_callback_) return false;
  began_ = std::chrono::steady_clock::now();
  refusal_ = nullptr;
  if (!MakeClient()) {
    Down("no memory for a client");
    return false;
  }
  // The asynchronous form: the other one waits for minutes on a hanging broker whose backlog is full.
  const int result = mosquitto_connect_bind_async(client_.get(), host_.c_str(), port_, kKeepAliveSeconds, nullptr);
  const int fd = mosquitto_socket(client_.get());
  if (result != MOSQ_ERR_SUCCESS || fd < 0) {
    Down(Reason(result));
    return false;
  }
  if (const int error = ConnectError(fd); error != 0) {
    Down(strerror(error));
    return false;
  }
  if (!WatchSocket()) {
    Down("no memory for events");
    return false;
  }
  Flush();
  return IsUp();
}

bool MqttLink::MakeClient() {
  client_.reset(mosquitto_new(nullptr, true, this));
  if (!client_) return false;
  mosquitto_int_option(client_.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  // A handler that publishes an event and then its reply would otherwise wait 40 ms for the broker's acknowledgement.
  mosquitto_int_option(client_.get(), MOSQ_OPT_TCP_NODELAY, 1);
  UseBusAccount(client_.get(), kDaemonRole, nullptr);
  mosquitto_connect_v5_callback_set(client_.get(), &MqttLink::OnConnect);
  mosquitto_subscribe_v5_callback_set(client_.get(), &MqttLink::OnSubscribe);
  mosquitto_message_v5_callback_set(client_.get(), &MqttLink::OnMessage);
  return true;
}

bool MqttLink::WatchSocket() {
  const int fd = mosquitto_socket(client_.get());
  // Programs started through the shell must not hold the connection open after this process has died.
  fcntl(fd, F_SETFD, FD_CLOEXEC);
  read_event_.reset(event_new(base_, fd, EV_READ | EV_PERSIST, &MqttLink::OnReadable, this));
  write_event_.reset(event_new(base_, fd, EV_WRITE, &MqttLink::OnWritable, this));
  return read_event_ && write_event_ && event_add(read_event_.get(), nullptr) == 0;
}

bool MqttLink::Subscribe(const char* const* topics, int count) {
  if (!IsUp()) return false;
  // The library takes the names as writable and does not write to them.
  const int result =
      mosquitto_subscribe_multiple(client_.get(), nullptr, count, const_cast<char* const*>(topics), 0, 0, nullptr);
  if (!in_callback_) Flush();
  return result == MOSQ_ERR_SUCCESS;
}

bool MqttLink::Publish(const char* topic, const void* data, uint32_t size, const mosquitto_property* properties) {
  if (!IsUp()) {
    ++dropped_;
    return false;
  }
  const uint64_t cost = size + kMessageOverhead;
  if (unsent_bytes_ + cost > kMaxUnsentBytes) {
    if (dropped_++ == 0) {
      lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
          << "the bus takes no more for now, messages are dropped";
    }
    return false;
  }
  const int result =
      mosquitto_publish_v5(client_.get(), nullptr, topic, static_cast<int>(size), data, 0, false, properties);
  if (result == MOSQ_ERR_SUCCESS) {
    unsent_bytes_ += cost;
    if (!accepted_) ++early_;
  } else if (result == MOSQ_ERR_CONN_LOST || result == MOSQ_ERR_ERRNO) {
    ++dropped_;  // on a dead socket: Flush finds out
  } else {
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << "a message on " << topic << " was not sent: " << mosquitto_strerror(result);
  }
  if (!in_callback_) Flush();
  return result == MOSQ_ERR_SUCCESS;
}

void MqttLink::Tick() {
  if (!accepted_ && std::chrono::steady_clock::now() - began_ >= kAcceptLimit) {
    Down("the broker does not accept the connection");
    return;
  }
  AfterLibraryCall(mosquitto_loop_misc(client_.get()));
}

void MqttLink::OnReadable(evutil_socket_t, short, void* self) {
  auto* const link = static_cast<MqttLink*>(self);
  link->in_callback_ = true;
  const int result = mosquitto_loop_read(link->client_.get(), 1);
  link->in_callback_ = false;
  link->AfterLibraryCall(result);
}

void MqttLink::OnWritable(evutil_socket_t, short, void* self) { static_cast<MqttLink*>(self)->Flush(); }

// The library closes its socket when a call fails, and also, reporting success, when the broker says goodbye.
void MqttLink::AfterLibraryCall(int result) {
  if (result != MOSQ_ERR_SUCCESS || mosquitto_socket(client_.get()) < 0) {
    Down(Reason(result));
    return;
  }
  if (mosquitto_want_write(client_.get())) Flush();
}

// What is published inside a callback of the library is only queued there: it goes out here.
void MqttLink::Flush() {
  if (mosquitto_want_write(client_.get())) {
    const int result = mosquitto_loop_write(client_.get(), 1);
    if (result != MOSQ_ERR_SUCCESS || mosquitto_socket(client_.get()) < 0) {
      Down(Reason(result));
      return;
    }
  }
  if (mosquitto_want_write(client_.get())) {
    event_add(write_event_.get(), nullptr);
    return;
  }
  unsent_bytes_ = 0;
  if (accepted_ && dropped_ > 0) ReportDropped();
}

void MqttLink::Down(const char* reason) {
  if (!down_logged_) {
    down_logged_ = true;
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << (accepted_ ? "the bus connection is lost: " : "the bus cannot be reached: ")
        << (refusal_ != nullptr ? refusal_ : reason);
  }
  Drop();
  listener_->OnMqttDown();
}

void MqttLink::Drop() {
  read_event_.reset();
  write_event_.reset();
  client_.reset();
  dropped_ += early_;
  early_ = 0;
  unsent_bytes_ = 0;
  accepted_ = false;
}

void MqttLink::ReportDropped() {
  lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
      << dropped_ << " outgoing messages were dropped while the bus did not take them";
  dropped_ = 0;
}

void MqttLink::OnConnect(mosquitto*, void* self, int reason, int, const mosquitto_property*) {
  auto* const link = static_cast<MqttLink*>(self);
  if (reason != 0) {  // the library closes the connection
    link->refusal_ = mosquitto_reason_string(reason);
    return;
  }
  link->accepted_ = true;
  link->down_logged_ = false;
  link->early_ = 0;
  lxlogging::CLxLogStream(lxlogging::kInfo, kLogSource, __LINE__, 0) << "the bus is connected";
  if (link->dropped_ > 0) link->ReportDropped();
}

void MqttLink::OnSubscribe(mosquitto*, void*, int, int count, const int* granted, const mosquitto_property*) {
  for (int i = 0; i < count; ++i) {
    if (granted[i] < 128) continue;
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << "the broker refuses subscription " << i + 1 << " of " << count << " with reason " << granted[i];
  }
}

void MqttLink::OnMessage(mosquitto*, void* self, const mosquitto_message* message,
                         const mosquitto_property* properties) {
  auto* const link = static_cast<MqttLink*>(self);
  lxconn::AtCallbackEdge("message", [&] { link->listener_->OnMqttMessage(*message, properties); });
}

}  // namespace platform
