// Where a broker is: "mqtt://HOST[:1883]" or "mqtts://HOST[:8883]", with a name behind a slash where one is meant.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace bus {

struct Address {
  std::string host = "127.0.0.1";  // a name, an IPv4 address, or an IPv6 address without its brackets
  uint16_t port = 5291;
  bool tls = false;
  std::string path;  // what stands behind the slash, e.g. the name of a site
};

// Nothing for a text of another form, such as an unknown scheme, port 0 or a password before the host.
std::optional<Address> ParseAddress(std::string_view text);

std::string AddressText(const Address& address);  // "mqtts://hub.example:8883", without the path

}  // namespace bus
