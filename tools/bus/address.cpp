#include "address.h"

#include <algorithm>
#include <charconv>

namespace bus {

namespace {

constexpr std::string_view kPlain = "mqtt://";
constexpr std::string_view kTls = "mqtts://";
constexpr uint16_t kPlainPort = 1883;
constexpr uint16_t kTlsPort = 8883;

bool StartsWith(std::string_view text, std::string_view head) { return text.substr(0, head.size()) == head; }

bool IsHost(std::string_view host) {
  // Beyond names and addresses nothing is let through to whoever resolves it.
  return !host.empty() && host.size() <= 253 && std::all_of(host.begin(), host.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
           c == '_' || c == ':';
  });
}

bool ReadPort(std::string_view text, uint16_t& port) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && end == text.data() + text.size() && port != 0;
}

}  // namespace

std::optional<Address> ParseAddress(std::string_view text) {
  Address address;
  address.tls = StartsWith(text, kTls);
  if (!address.tls && !StartsWith(text, kPlain)) return std::nullopt;
  text.remove_prefix(address.tls ? kTls.size() : kPlain.size());
  address.port = address.tls ? kTlsPort : kPlainPort;

  const size_t slash = std::min(text.find('/'), text.size());
  if (slash < text.size()) address.path = text.substr(slash + 1);
  std::string_view place = text.substr(0, slash);
  std::string_view port;
  bool has_port = false;
  if (StartsWith(place, "[")) {  // an IPv6 address has colons of its own
    const size_t end = place.find(']');
    if (end == std::string_view::npos) return std::nullopt;
    port = place.substr(end + 1);
    place = place.substr(1, end - 1);
    has_port = !port.empty();
    if (has_port && port[0] != ':') return std::nullopt;
    if (has_port) port.remove_prefix(1);
    if (place.find(':') == std::string_view::npos) return std::nullopt;
  } else if (const size_t colon = place.find(':'); colon != std::string_view::npos) {
    port = place.substr(colon + 1);
    place = place.substr(0, colon);
    has_port = true;
  }
  if (!IsHost(place) || (has_port && !ReadPort(port, address.port))) return std::nullopt;
  address.host = place;
  return address;
}

std::string AddressText(const Address& address) {
  const bool brackets = address.host.find(':') != std::string::npos;
  return std::string(address.tls ? kTls : kPlain) + (brackets ? "[" + address.host + "]" : address.host) + ":" +
         std::to_string(address.port);
}

}  // namespace bus
