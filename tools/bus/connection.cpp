#include "connection.h"

#include <fcntl.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "bus_account.h"
#include "peer_owner.h"

namespace bus {

namespace {

constexpr char kAccounts[] = "/etc/business-server/bus";  // of an installed device
constexpr char kAuthorities[] = "/etc/ssl/certs";         // of the machine
constexpr int kVerifyPeer = 1;
constexpr int kLetInMilliseconds = 1000;

struct Properties {
  mosquitto_property* list = nullptr;
  Properties() = default;
  Properties(const Properties&) = delete;
  Properties& operator=(const Properties&) = delete;
  ~Properties() { mosquitto_property_free_all(&list); }
};

void AddProperties(const Message& message, Properties& properties) {
  if (!message.response_topic.empty()) {
    mosquitto_property_add_string(&properties.list, MQTT_PROP_RESPONSE_TOPIC, message.response_topic.c_str());
  }
  if (!message.correlation.empty()) {
    mosquitto_property_add_binary(&properties.list, MQTT_PROP_CORRELATION_DATA, message.correlation.data(),
                                  static_cast<uint16_t>(message.correlation.size()));
  }
  if (message.expiry_s > 0) {
    mosquitto_property_add_int32(&properties.list, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, message.expiry_s);
  }
}

std::string TextProperty(const mosquitto_property* properties, int number) {
  char* value = nullptr;
  if (mosquitto_property_read_string(properties, number, &value, false) == nullptr) return "";
  const std::unique_ptr<char, decltype(&free)> owner(value, free);
  return value;
}

std::string BinaryProperty(const mosquitto_property* properties, int number) {
  void* value = nullptr;
  uint16_t size = 0;
  if (mosquitto_property_read_binary(properties, number, &value, &size, false) == nullptr) return "";
  const std::unique_ptr<void, decltype(&free)> owner(value, free);
  return std::string(static_cast<const char*>(value), size);
}

std::string WithoutFullStop(std::string words) {
  while (!words.empty() && (words.back() == '.' || words.back() == '\n')) words.pop_back();
  return words;
}

// "OpenSSL Error[0]: error:0A000086:SSL routines::certificate verify failed": what follows the last colon.
std::string TlsWords(const std::string& logged) {
  const size_t colon = logged.rfind(':');
  return WithoutFullStop(colon == std::string::npos ? logged : logged.substr(logged.find_first_not_of(" :", colon)));
}

int SocketError(int descriptor) {
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

// The library takes both for "not yet" while TLS is being agreed on, and asks again for ever: a connection that was
// never made, whose error it has already taken off the socket, and one that the other side has closed.
const char* DeadBeforeTls(int descriptor) {
  sockaddr_storage peer;
  socklen_t size = sizeof peer;
  if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) != 0) return "nobody takes connections there";
  char byte;
  if (recv(descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0) return "it closed the connection";
  return nullptr;
}

Connection* Self(void* self) { return static_cast<Connection*>(self); }

}  // namespace

void Connection::Deleter::operator()(mosquitto* client) const { mosquitto_destroy(client); }

Connection::Connection(Options options, Handlers handlers)
    : options_(std::move(options)), handlers_(std::move(handlers)) {
  static const int library = mosquitto_lib_init();
  static_cast<void>(library);
  client_.reset(mosquitto_new(options_.client_id.empty() ? nullptr : options_.client_id.c_str(), true, this));
  if (client_ == nullptr) throw std::bad_alloc();
  SetUp();
}

Connection::~Connection() {
  if (!up_ || over_) return;
  mosquitto_disconnect_v5(client_.get(), MQTT_RC_NORMAL_DISCONNECTION, nullptr);
  if (mosquitto_want_write(client_.get())) mosquitto_loop_write(client_.get(), 1);
}

void Connection::SetUp() {
  mosquitto* const client = client_.get();
  mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
  if (!options_.role.empty()) {
    platform::UseBusAccount(client, options_.role.c_str(), kAccounts);
    owner_ = platform::AccountId(platform::kBusAccount);  // without a password, too, nobody else is believed
  }
  if (owner_) platform::HoldLogin(client);
  if (!options_.user.empty()) mosquitto_username_pw_set(client, options_.user.c_str(), options_.password.c_str());
  mosquitto_connect_v5_callback_set(client, OnConnect);
  mosquitto_disconnect_v5_callback_set(client, OnDisconnect);
  mosquitto_log_callback_set(client, OnLog);
  mosquitto_publish_v5_callback_set(client, [](mosquitto*, void* self, int id, int reason, const mosquitto_property*) {
    if (Self(self)->handlers_.confirmed) Self(self)->handlers_.confirmed(id, reason);
  });
  mosquitto_subscribe_v5_callback_set(
      client, [](mosquitto*, void* self, int id, int count, const int* granted, const mosquitto_property*) {
        if (Self(self)->handlers_.subscribed) Self(self)->handlers_.subscribed(id, {granted, granted + count});
      });
  mosquitto_message_v5_callback_set(
      client, [](mosquitto*, void* self, const mosquitto_message* message, const mosquitto_property* properties) {
        Self(self)->Received(*message, properties);
      });
}

void Connection::OnConnect(mosquitto*, void* self, int reason, int, const mosquitto_property*) {
  Connection& connection = *Self(self);
  if (reason == MQTT_RC_SUCCESS) {
    connection.up_ = true;
    if (connection.handlers_.up) connection.handlers_.up();
    return;
  }
  connection.refused_ = reason == MQTT_RC_NOT_AUTHORIZED || reason == MQTT_RC_BAD_USERNAME_OR_PASSWORD;
  connection.problem_ = WithoutFullStop(mosquitto_reason_string(reason));
}

void Connection::OnDisconnect(mosquitto*, void* self, int reason, const mosquitto_property*) {
  Connection& connection = *Self(self);
  // Above the library's own errors stand the broker's reasons.
  if (connection.problem_.empty() && reason >= MQTT_RC_UNSPECIFIED) {
    connection.problem_ = WithoutFullStop(mosquitto_reason_string(reason));
  }
}

void Connection::OnLog(mosquitto*, void* self, int level, const char* text) {
  if (level == MOSQ_LOG_ERR) Self(self)->logged_ = text;
}

void Connection::Received(const mosquitto_message& message, const mosquitto_property* properties) {
  if (!handlers_.message) return;
  Message received{message.topic, std::string(static_cast<const char*>(message.payload),
                                              static_cast<size_t>(std::max(message.payloadlen, 0)))};
  received.response_topic = TextProperty(properties, MQTT_PROP_RESPONSE_TOPIC);
  received.correlation = BinaryProperty(properties, MQTT_PROP_CORRELATION_DATA);
  received.retained = message.retain;
  received.qos = message.qos;
  handlers_.message(received);
}

bool Connection::Begin() {
  mosquitto* const client = client_.get();
  if (options_.address.tls) {
    const bool own = !options_.ca.empty();
    int result = mosquitto_tls_set(client, own ? options_.ca.c_str() : nullptr, own ? nullptr : kAuthorities, nullptr,
                                   nullptr, nullptr);
    if (result == MOSQ_ERR_SUCCESS) result = mosquitto_tls_opts_set(client, kVerifyPeer, nullptr, nullptr);
    if (result != MOSQ_ERR_SUCCESS) {
      over_ = true;
      problem_ = "the authorities in " + (own ? options_.ca : kAuthorities) + " cannot be read";
      return false;
    }
  }
  const auto connect = [&] {
    return mosquitto_connect_bind_async(client, options_.address.host.c_str(), options_.address.port,
                                        options_.keep_alive_s, nullptr);
  };
  const int result = options_.within ? options_.within(connect) : connect();
  if (result != MOSQ_ERR_SUCCESS || mosquitto_socket(client) < 0) {
    Lost(result);
    return false;
  }
  fcntl(mosquitto_socket(client), F_SETFD, FD_CLOEXEC);
  connecting_ = true;
  return !owner_ || LetIn();
}

// The password of a role is for the device's broker alone.
bool Connection::LetIn() {
  const int fd = mosquitto_socket(client_.get());
  const platform::Peer peer = platform::AwaitPeer(fd, *owner_, kLetInMilliseconds);
  if (peer == platform::Peer::kTrusted) {
    platform::ReleaseLogin(client_.get());
    return true;
  }
  problem_ = peer == platform::Peer::kStranger ? platform::StrangerText(fd) + ", which is not the device's"
                                               : "it does not take connections";
  Lost(MOSQ_ERR_SUCCESS);
  return false;
}

int Connection::descriptor() const { return over_ ? -1 : mosquitto_socket(client_.get()); }

bool Connection::WantsWrite() const { return connecting_ || mosquitto_want_write(client_.get()); }

bool Connection::Serve() {
  if (over_) return false;
  if (connecting_) {
    connecting_ = false;
    if (const int error = SocketError(mosquitto_socket(client_.get())); error != 0) {
      problem_ = strerror(error);
      Lost(MOSQ_ERR_SUCCESS);
      return false;
    }
  }
  // Reading comes first while TLS is being agreed on: the library does that in its reading half.
  in_callback_ = true;
  const int result = mosquitto_loop_read(client_.get(), 1);
  in_callback_ = false;
  const char* const dead = up_ || result != MOSQ_ERR_SUCCESS ? nullptr : DeadBeforeTls(descriptor());
  if (dead != nullptr && problem_.empty()) problem_ = dead;
  if (dead != nullptr) Lost(result);
  return dead == nullptr && After(result);
}

bool Connection::Tick() {
  if (over_) return false;
  if (connecting_) return true;
  in_callback_ = true;
  const int result = mosquitto_loop_misc(client_.get());
  in_callback_ = false;
  return After(result);
}

// The library closes its socket when a call fails, and also, reporting success, when the broker says goodbye.
bool Connection::After(int result) {
  if (result != MOSQ_ERR_SUCCESS || mosquitto_socket(client_.get()) < 0) {
    Lost(result);
    return false;
  }
  return Flush();
}

bool Connection::Flush() {
  if (!mosquitto_want_write(client_.get())) return true;
  in_callback_ = true;
  const int result = mosquitto_loop_write(client_.get(), 1);
  in_callback_ = false;
  if (result == MOSQ_ERR_SUCCESS && mosquitto_socket(client_.get()) >= 0) return true;
  Lost(result);
  return false;
}

void Connection::Lost(int result) {
  over_ = true;
  up_ = false;
  if (!problem_.empty()) return;
  switch (result) {
    case MOSQ_ERR_SUCCESS:
      problem_ = "it closed the connection";
      break;
    case MOSQ_ERR_ERRNO:
      problem_ = strerror(errno);
      break;
    case MOSQ_ERR_KEEPALIVE:
      problem_ = "it stopped answering";
      break;
    case MOSQ_ERR_TLS:
      problem_ = logged_.empty() ? "it does not speak TLS" : "TLS: " + TlsWords(logged_);
      break;
    default:
      problem_ = WithoutFullStop(mosquitto_strerror(result));
  }
}

std::optional<int> Connection::Publish(const Message& message) {
  if (over_) return std::nullopt;
  Properties properties;
  AddProperties(message, properties);
  int id = 0;
  const int result =
      mosquitto_publish_v5(client_.get(), &id, message.topic.c_str(), static_cast<int>(message.payload.size()),
                           message.payload.data(), message.qos, message.retained, properties.list);
  if (result != MOSQ_ERR_SUCCESS) {
    if (mosquitto_socket(client_.get()) < 0) Lost(result);
    return std::nullopt;
  }
  if (!in_callback_ && !connecting_ && !Flush()) return std::nullopt;
  return id;
}

std::optional<int> Connection::Subscribe(const std::vector<std::string>& filters, int qos, bool own_messages) {
  if (over_) return std::nullopt;
  std::vector<char*> names;  // the library takes them as writable and does not write to them
  names.reserve(filters.size());
  for (const std::string& filter : filters) names.push_back(const_cast<char*>(filter.c_str()));
  int id = 0;
  const int result = mosquitto_subscribe_multiple(client_.get(), &id, static_cast<int>(names.size()), names.data(), qos,
                                                  own_messages ? 0 : MQTT_SUB_OPT_NO_LOCAL, nullptr);
  if (result != MOSQ_ERR_SUCCESS || (!in_callback_ && !connecting_ && !Flush())) return std::nullopt;
  return id;
}

}  // namespace bus
