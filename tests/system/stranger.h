// Somebody who talks to a port byte by byte, as no client library would: packets that are never finished, answers that
// are never fetched. And the few packets of the bus that it takes to log in, listen and speak.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

class Stranger {
 public:
  // A small receive buffer makes the other end keep what is not fetched.
  explicit Stranger(uint16_t port, int receive_buffer = 0) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (receive_buffer > 0) setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval patience = {2, 0};
    setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    open_ = connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  ~Stranger() {
    if (fd_ >= 0) close(fd_);
  }
  Stranger(Stranger&& other) noexcept : fd_(std::exchange(other.fd_, -1)), open_(other.open_) {}
  Stranger(const Stranger&) = delete;
  Stranger& operator=(const Stranger&) = delete;

  bool open() const { return open_; }

  // False once the other end has closed, or takes nothing for two seconds.
  bool Send(std::string_view bytes) {
    while (open_ && !bytes.empty()) {
      const ssize_t sent = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      open_ = sent > 0;
      if (open_) bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return open_;
  }

  // What arrives next within the limit; empty for nothing.
  std::string ReadSome(std::chrono::milliseconds limit) {
    std::string part(1 << 16, '\0');
    pollfd waiting = {fd_, POLLIN, 0};
    if (!open_ || poll(&waiting, 1, static_cast<int>(limit.count())) <= 0) return "";
    const ssize_t size = recv(fd_, part.data(), part.size(), 0);
    open_ = size > 0;
    part.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
    return part;
  }
  // What arrives, until there is nothing for this long.
  std::string Read(std::chrono::milliseconds silence) {
    std::string all;
    for (std::string part; !(part = ReadSome(silence)).empty();) all += part;
    return all;
  }

 private:
  int fd_;
  bool open_ = false;
};

// That many connections that have said this, and no more. With room for the other end to take them in: beyond a
// hundred that wait the system lets the next one wait for a second.
inline std::vector<Stranger> Crowd(uint16_t port, int size, const std::string& words = "") {
  std::vector<Stranger> crowd;
  for (int i = 0; i < size; ++i) {
    crowd.emplace_back(port);
    crowd.back().Send(words);
    if (i % 50 == 49) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return crowd;
}

namespace mqtt {

inline std::string Number(size_t value, unsigned bytes) {
  std::string text;
  while (bytes-- > 0) text += static_cast<char>(value >> (8 * bytes));
  return text;
}

inline std::string Length(size_t value) {
  std::string text;
  do {
    text += static_cast<char>((value & 0x7F) | (value > 0x7F ? 0x80 : 0));
  } while ((value >>= 7) > 0);
  return text;
}

inline std::string Text(const std::string& text) { return Number(text.size(), 2) + text; }

inline std::string Packet(uint8_t type, const std::string& rest) {
  return static_cast<char>(type) + Length(rest.size()) + rest;
}

struct Login {
  std::string id, user, password;
  bool clean = true;
  uint32_t kept_seconds = 0;
  std::string will_topic{};  // empty: no last will
};

inline std::string Connect(const Login& login) {
  const int flags = (login.clean ? 2 : 0) | (login.user.empty() ? 0 : 0xC0) | (login.will_topic.empty() ? 0 : 4);
  std::string rest = Text("MQTT") + '\5' + static_cast<char>(flags) + Number(60, 2);
  rest += login.kept_seconds > 0 ? "\5\x11" + Number(login.kept_seconds, 4) : std::string(1, '\0');
  rest += Text(login.id);
  if (!login.will_topic.empty()) rest += '\0' + Text(login.will_topic) + Text("will");
  if (!login.user.empty()) rest += Text(login.user) + Text(login.password);
  return Packet(0x10, rest);
}

inline std::string Subscribe(const std::vector<std::string>& filters) {
  std::string rest = Number(1, 2) + '\0';
  for (const std::string& filter : filters) rest += Text(filter) + '\0';
  return Packet(0x82, rest);
}

struct Message {
  std::string topic, payload, response_topic, correlation;
  bool retain = false;
};

inline std::string Publish(const Message& message) {
  std::string properties;
  if (!message.response_topic.empty()) properties += '\x08' + Text(message.response_topic);
  if (!message.correlation.empty()) properties += '\x09' + Text(message.correlation);
  return Packet(message.retain ? 0x31 : 0x30,
                Text(message.topic) + Length(properties.size()) + properties + message.payload);
}

}  // namespace mqtt

// Whether a broker takes 60 MB of a packet of 250 MB.
inline bool TakesLargePacket(uint16_t port) {
  Stranger large(port);
  large.Send("\x10" + mqtt::Length(250u << 20));
  const std::string chunk(1 << 20, 'x');
  for (int i = 0; i < 60 && large.Send(chunk); ++i) {
  }
  return large.open();
}

// That many that say all of a packet of 66 kB but for its last byte.
inline std::vector<Stranger> UnfinishedCrowd(uint16_t port, int size) {
  std::string almost = mqtt::Packet(0x10, std::string(66000, 'x'));
  almost.pop_back();
  return Crowd(port, size, almost);
}
