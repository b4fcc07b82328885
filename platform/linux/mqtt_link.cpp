#include "mqtt_link.h"

#include <fcntl.h>
#include <mqtt_protocol.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

#include "bus_account.h"
#include "lx_logging.h"
#include "peer_owner.h"

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

// The broker is asked whose it is as soon as it has taken the connection.
constexpr int kLetInLimitMs = 20;
constexpr timeval kLetInPause = {0, 20 * 1000};
constexpr uint64_t kMaxUnsentBytes = 8 * 1024 * 1024;
constexpr uint64_t kMessageOverhead = 256;  // the library's record of one, and its headers
constexpr int kGoodbyeLimitMs = 200;
constexpr char kNoTopic[] = "sign/of/life";  // nobody subscribes to it: the broker says so

// 0 when the connection stands or is still being made, else why it failed.
int ConnectError(int fd, int limit_ms) {
  pollfd connecting = {fd, POLLOUT, 0};
  if (poll(&connecting, 1, limit_ms) <= 0) return 0;
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

bool IsClosedByPeer(int fd) {
  char byte;
  return recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

}  // namespace

// Looks up a name, which can take long, and begins to connect. The thread that does it owns the client meanwhile: the
// link may be gone when it is done.
struct MqttLink::Lookup {
  std::unique_ptr<mosquitto, ClientDeleter> client;
  std::shared_ptr<TlsVerdict> tls_verdict;
  std::string host;
  uint16_t port;
  int keep_alive_s;
  int done = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  int result = MOSQ_ERR_SUCCESS;
  int error = 0;  // errno that belongs to it

  ~Lookup() {
    if (done >= 0) close(done);
  }
  void Run() {
    result = mosquitto_connect_bind_async(client.get(), host.c_str(), port, keep_alive_s, nullptr);
    error = errno;
    eventfd_write(done, 1);
  }
};

MqttLink::MqttLink(event_base* base, MqttOptions options, Listener* listener)
    : base_(base), options_(std::move(options)), listener_(listener) {}

bool MqttLink::Connect() {
  if (IsUp()) return accepted_;
  if (in_callback_ || lookup_) return false;
  began_ = Clock::now();
  silent_ticks_ = 0;
  refusal_.clear();
  if (!MakeClient()) {
    Down("no memory for a client");  // or what refusal_ says
    return false;
  }
  if (!IsAddress(options_.host)) return BeginLookup();
  // The asynchronous form: the other one waits for minutes on a hanging broker whose backlog is full.
  return TakeConnection(mosquitto_connect_bind_async(client_.get(), options_.host.c_str(), options_.port,
                                                     options_.keep_alive_s, nullptr));
}

bool MqttLink::BeginLookup() {
  if (!last_lookup_.expired()) {
    Down("its name is still being looked up");
    return false;
  }
  const auto lookup = std::make_shared<Lookup>();
  lookup->client = std::move(client_);
  lookup->tls_verdict = tls_verdict_;
  lookup->host = options_.host;
  lookup->port = options_.port;
  lookup->keep_alive_s = options_.keep_alive_s;
  lookup_event_.reset(event_new(base_, lookup->done, EV_READ, &MqttLink::OnLookedUp, this));
  if (!lookup_event_ || event_add(lookup_event_.get(), nullptr) != 0) {
    Down("no memory for events");
    return false;
  }
  try {
    std::thread([lookup] { lookup->Run(); }).detach();
  } catch (const std::system_error& error) {
    Down(error.what());
    return false;
  }
  lookup_ = lookup;
  last_lookup_ = lookup;
  return false;
}

void MqttLink::OnLookedUp(evutil_socket_t, short, void* self) {
  auto* const link = static_cast<MqttLink*>(self);
  link->client_ = std::move(link->lookup_->client);
  const int result = link->lookup_->result;
  errno = link->lookup_->error;
  link->lookup_event_.reset();
  link->lookup_.reset();
  link->TakeConnection(result);
}

bool MqttLink::TakeConnection(int result) {
  const int fd = mosquitto_socket(client_.get());
  if (result != MOSQ_ERR_SUCCESS || fd < 0) {
    Down(result == MOSQ_ERR_EAI ? "the name of its host is not known" : Reason(result));
    return false;
  }
  if (const int error = ConnectError(fd, options_.connect_limit_ms); error != 0) {
    Down(strerror(error));
    return false;
  }
  if (!WatchSocket()) {
    Down("no memory for events");
    return false;
  }
  if (held_ && AwaitPeer(fd, *owner_, kLetInLimitMs) == Peer::kUnknownYet) {
    event_add(let_in_event_.get(), &kLetInPause);
  } else {
    LetIn();
  }
  return IsUp();
}

// The broker's account alone is given the password of a role, and believed.
void MqttLink::LetIn() {
  const int fd = mosquitto_socket(client_.get());
  if (held_) {
    const Peer peer = CheckPeer(fd, *owner_);
    if (peer == Peer::kUnknownYet) return;
    if (peer == Peer::kStranger) {
      const std::string reason = StrangerText(fd) + ", which is not the broker's";
      Down(reason.c_str());
      return;
    }
    held_ = false;
    let_in_event_.reset();
    ReleaseLogin(client_.get());
  }
  event_add(read_event_.get(), nullptr);
  Flush();
}

bool MqttLink::MakeClient() {
  client_.reset(mosquitto_new(options_.client_id.empty() ? nullptr : options_.client_id.c_str(), true, this));
  if (!client_) return false;
  mosquitto_int_option(client_.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  // A handler that publishes an event and then its reply would otherwise wait 40 ms for the broker's acknowledgement.
  mosquitto_int_option(client_.get(), MOSQ_OPT_TCP_NODELAY, 1);
  owner_.reset();
  if (!options_.role.empty()) {
    UseBusAccount(client_.get(), options_.role.c_str(), nullptr);
    owner_ = AccountId(kBusAccount);  // without a password, too, nobody else is believed
  } else if (!options_.user.empty()) {
    mosquitto_username_pw_set(client_.get(), options_.user.c_str(), options_.password.c_str());
  }
  held_ = owner_.has_value();
  if (held_) HoldLogin(client_.get());
  if (!options_.will_topic.empty()) {
    mosquitto_will_set(client_.get(), options_.will_topic.c_str(), static_cast<int>(options_.will.size()),
                       options_.will.data(), 0, true);
  }
  if (options_.tls) {
    tls_verdict_ = std::make_shared<TlsVerdict>();
    const TlsContext context = MakeTlsContext(options_.host, options_.ca, tls_verdict_.get(), &refusal_);
    if (!context) return false;
    mosquitto_void_option(client_.get(), MOSQ_OPT_SSL_CTX, context.get());  // takes a share of it
    mosquitto_int_option(client_.get(), MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0);
  }
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
  let_in_event_.reset(event_new(base_, -1, EV_PERSIST, &MqttLink::OnLetIn, this));
  if (!read_event_ || !write_event_ || !let_in_event_) return false;
  // TLS is agreed on once the port has answered.
  return !options_.tls || event_add(write_event_.get(), nullptr) == 0;
}

void MqttLink::Close(bool goodbye) {
  if (IsUp() && accepted_ && goodbye) {
    mosquitto_disconnect_v5(client_.get(), MQTT_RC_NORMAL_DISCONNECTION, nullptr);
    pollfd ready = {mosquitto_socket(client_.get()), POLLOUT, 0};
    while (mosquitto_want_write(client_.get()) && poll(&ready, 1, kGoodbyeLimitMs) > 0) {
      if (mosquitto_loop_write(client_.get(), 1) != MOSQ_ERR_SUCCESS || mosquitto_socket(client_.get()) < 0) break;
    }
  }
  Drop();
  down_logged_ = false;
  logged_reason_.clear();
}

bool MqttLink::Subscribe(const char* const* topics, int count) {
  if (!IsUp()) return false;
  // The library takes the names as writable and does not write to them.
  const int result =
      mosquitto_subscribe_multiple(client_.get(), nullptr, count, const_cast<char* const*>(topics), 0, 0, nullptr);
  if (!in_callback_) Flush();
  return result == MOSQ_ERR_SUCCESS;
}

bool MqttLink::Unsubscribe(const char* const* topics, int count) {
  if (!IsUp()) return false;
  const int result =
      mosquitto_unsubscribe_multiple(client_.get(), nullptr, count, const_cast<char* const*>(topics), nullptr);
  if (!in_callback_) Flush();
  return result == MOSQ_ERR_SUCCESS;
}

bool MqttLink::Publish(const char* topic, const void* data, uint32_t size, const mosquitto_property* properties,
                       bool retained) {
  if (!IsUp()) {
    ++dropped_;
    return false;
  }
  const uint64_t cost = size + kMessageOverhead;
  if (unsent_bytes_ + cost > kMaxUnsentBytes) {
    if (dropped_++ == 0) {
      Log(lxlogging::kError, __LINE__,
          std::string("the ") + options_.name + " takes no more for now, messages are dropped");
    }
    return false;
  }
  const int result =
      mosquitto_publish_v5(client_.get(), nullptr, topic, static_cast<int>(size), data, 0, retained, properties);
  if (result == MOSQ_ERR_SUCCESS) {
    unsent_bytes_ += cost;
    if (!accepted_) ++early_;
  } else if (result == MOSQ_ERR_CONN_LOST || result == MOSQ_ERR_ERRNO) {
    ++dropped_;  // on a dead socket: Flush finds out
  } else {
    Log(lxlogging::kError, __LINE__,
        std::string("a message on ") + topic + " was not sent: " + mosquitto_strerror(result));
  }
  if (!in_callback_) Flush();
  return result == MOSQ_ERR_SUCCESS;
}

void MqttLink::Tick() {
  if (!IsUp() && !IsConnecting()) return;
  if (!accepted_ && Clock::now() - began_ >= options_.accept_limit) {
    Down(IsConnecting() ? "its name cannot be looked up" : "the broker does not accept the connection");
    return;
  }
  if (held_) return;
  if (IsUp()) AfterLibraryCall(mosquitto_loop_misc(client_.get()));
  if (IsUp() && accepted_ && options_.silence_limit.count() > 0) CheckLife();
}

// The library's keep-alive alone would take twice its time to find out, and would hold against the broker what held the
// loop up here.
void MqttLink::CheckLife() {
  const std::chrono::seconds silence(++silent_ticks_);
  if (silence >= 2 * options_.silence_limit) {
    Down("the broker does not answer");
  } else if (silence == options_.silence_limit) {
    const char* const topic = kNoTopic;
    Unsubscribe(&topic, 1);
  }
}

// Whether the port has answered; one that refused ends the attempt. The library would take it for one that is slow.
bool MqttLink::IsConnected() {
  if (connected_) return true;
  if (const int error = ConnectError(mosquitto_socket(client_.get()), 0); error != 0) {
    Down(strerror(error));
    return false;
  }
  connected_ = true;
  return true;
}

void MqttLink::Read() {
  if (!IsConnected()) return;
  // When TLS is refused the library closes the socket: of two events that wait for it, one could not be taken off in
  // peace. Whoever still wants to write is asked afterwards.
  if (options_.tls && !accepted_) event_del(write_event_.get());
  in_callback_ = true;
  const int result = mosquitto_loop_read(client_.get(), 1);
  in_callback_ = false;
  silent_ticks_ = 0;
  // While TLS is agreed on, the library waits for ever for a peer that has hung up.
  if (result == MOSQ_ERR_SUCCESS && options_.tls && !accepted_ && mosquitto_socket(client_.get()) >= 0 &&
      IsClosedByPeer(mosquitto_socket(client_.get()))) {
    Down("the broker closed it");
  } else {
    AfterLibraryCall(result);
  }
  listener_->OnMqttServed();
}

void MqttLink::OnReadable(evutil_socket_t, short, void* self) { static_cast<MqttLink*>(self)->Read(); }

void MqttLink::OnWritable(evutil_socket_t, short, void* self) {
  auto* const link = static_cast<MqttLink*>(self);
  if (link->options_.tls && !link->accepted_) {
    link->Read();  // the library agrees on TLS in its reading half
  } else {
    link->Flush();
  }
}

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
  if (held_) return;
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
  std::string text = reason;  // it may be a part of what is dropped
  if (tls_verdict_ && tls_verdict_->error != 0) text = VerdictText(tls_verdict_->error);
  if (!refusal_.empty()) text = refusal_;
  const bool new_reason = options_.tells_each_reason && text != logged_reason_;
  if (!down_logged_ || new_reason) {
    down_logged_ = true;
    logged_reason_ = text;
    const std::string name = std::string("the ") + options_.name;
    Log(lxlogging::kError, __LINE__,
        (accepted_ ? name + " connection is lost: " : name + " cannot be reached: ") + text);
  }
  Drop();
  listener_->OnMqttDown();
}

void MqttLink::Drop() {
  read_event_.reset();
  write_event_.reset();
  lookup_event_.reset();
  let_in_event_.reset();
  lookup_.reset();
  client_.reset();
  tls_verdict_.reset();
  dropped_ += early_;
  early_ = 0;
  unsent_bytes_ = 0;
  connected_ = false;
  accepted_ = false;
  held_ = false;
}

void MqttLink::ReportDropped() {
  Log(lxlogging::kError, __LINE__,
      std::to_string(dropped_) + " outgoing messages were dropped while the " + options_.name + " did not take them");
  dropped_ = 0;
}

void MqttLink::Log(int level, int line, const std::string& text) const {
  lxlogging::CLxLogStream(level, options_.log_source, line, 0) << text;
}

void MqttLink::OnConnect(mosquitto*, void* self, int reason, int, const mosquitto_property*) {
  auto* const link = static_cast<MqttLink*>(self);
  if (reason != 0) {  // the library closes the connection
    link->refusal_ = mosquitto_reason_string(reason);
    return;
  }
  link->accepted_ = true;
  link->down_logged_ = false;
  link->logged_reason_.clear();
  link->early_ = 0;
  link->Log(lxlogging::kLifecycle, __LINE__, std::string("the ") + link->options_.name + " is connected");
  if (link->dropped_ > 0) link->ReportDropped();
  lxconn::AtCallbackEdge("connection", [&] { link->listener_->OnMqttUp(); });
}

void MqttLink::OnSubscribe(mosquitto*, void* self, int, int count, const int* granted, const mosquitto_property*) {
  auto* const link = static_cast<MqttLink*>(self);
  for (int i = 0; i < count; ++i) {
    if (granted[i] < 128) continue;
    link->Log(lxlogging::kError, __LINE__,
              "the broker refuses subscription " + std::to_string(i + 1) + " of " + std::to_string(count) +
                  " with reason " + std::to_string(granted[i]));
  }
  lxconn::AtCallbackEdge("subscription", [&] { link->listener_->OnMqttSubscribed(); });
}

void MqttLink::OnMessage(mosquitto*, void* self, const mosquitto_message* message,
                         const mosquitto_property* properties) {
  auto* const link = static_cast<MqttLink*>(self);
  lxconn::AtCallbackEdge("message", [&] { link->listener_->OnMqttMessage(*message, properties); });
}

}  // namespace platform
