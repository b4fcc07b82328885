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
  Stranger(Stranger&& other) noexcept : fd_(std::exchange(other.fd_, -1)), open_(other.open_), in_(other.in_) {}
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

  // What arrives, until there is nothing for this long. Empty for nothing.
  std::string Read(std::chrono::milliseconds silence) {
    std::string all;
    std::vector<char> part(1 << 16);
    for (pollfd waiting = {fd_, POLLIN, 0}; open_ && poll(&waiting, 1, static_cast<int>(silence.count())) > 0;) {
      const ssize_t size = recv(fd_, part.data(), part.size(), 0);
      if (size <= 0) {
        open_ = false;
      } else {
        all.append(part.data(), static_cast<size_t>(size));
      }
    }
    return all;
  }

  // The next whole packet of the bus, its first byte and what follows the length; empty for none in time.
  std::string ReadPacket(std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
      size_t length = 0, at = 1;
      bool known = false;
      for (unsigned shift = 0; at < in_.size() && at < 5 && !known; shift += 7, ++at) {
        length |= static_cast<size_t>(static_cast<uint8_t>(in_[at]) & 0x7F) << shift;
        known = (static_cast<uint8_t>(in_[at]) & 0x80) == 0;
      }
      if (known && in_.size() - at >= length) {
        std::string packet = in_[0] + in_.substr(at, length);
        in_.erase(0, at + length);
        return packet;
      }
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
      pollfd waiting = {fd_, POLLIN, 0};
      if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) <= 0) return "";
      char part[1 << 14];
      const ssize_t size = recv(fd_, part, sizeof part, 0);
      open_ = open_ && size > 0;
      if (!open_) return "";
      in_.append(part, static_cast<size_t>(size));
    }
  }

 private:
  int fd_;
  bool open_ = false;
  std::string in_;
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

// Of a packet from ReadPacket that is a message without confirmation; anything else has no topic.
inline Message Read(const std::string& packet) {
  Message message;
  const auto byte = [&](size_t at) { return at < packet.size() ? static_cast<uint8_t>(packet[at]) : 0u; };
  const auto text = [&](size_t at) {
    return packet.substr(std::min(at + 2, packet.size()), byte(at) << 8 | byte(at + 1));
  };
  if (packet.size() < 4 || (byte(0) & 0xF6) != 0x30) return message;
  message.retain = (byte(0) & 1) != 0;
  message.topic = text(1);
  size_t at = 3 + message.topic.size(), length = 0;
  unsigned shift = 0;
  for (bool more = true; more && shift < 28; shift += 7, ++at) {
    length |= (byte(at) & 0x7Fu) << shift;
    more = (byte(at) & 0x80) != 0;
  }
  const size_t end = std::min(at + length, packet.size());
  while (at < end) {
    const unsigned property = byte(at++);
    if (property == 0x01) {
      at += 1;
    } else if (property == 0x02) {
      at += 4;
    } else if (property == 0x23) {
      at += 2;
    } else if (property == 0x03 || property == 0x08 || property == 0x09) {
      (property == 0x08 ? message.response_topic : message.correlation) = text(at);
      at += 2 + (byte(at) << 8 | byte(at + 1));
    } else {
      break;
    }
  }
  message.payload = packet.substr(end);
  return message;
}

}  // namespace mqtt
