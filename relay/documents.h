// What the relay reads and writes as texts: its own document, plans, counts. A text of the hub is taken strictly (no
// comments, nothing behind it, no member twice), so that nobody downstream can read anything else in it.
#pragma once

#include <json/value.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/frame_info.h"
#include "protocol/site_names.h"

namespace relay {

namespace bs = businessserver;

inline constexpr size_t kDirections = bs::kDirectionNames.size();

// A JSON object and nothing else. Never throws.
bool ParseObject(std::string_view text, Json::Value* document);

struct Counts {
  uint32_t spaces = 0;
  uint32_t free = 0;
};
constexpr bool operator==(const Counts& a, const Counts& b) { return a.spaces == b.spaces && a.free == b.free; }
constexpr bool operator!=(const Counts& a, const Counts& b) { return !(a == b); }

// {"spaces": 3, "free": 1}: whole numbers up to kSiteSpacesMax, free not above spaces, kCountsBytesMax bytes at most.
std::optional<Counts> ParseCounts(std::string_view text);
std::string CountsText(const Counts& counts);

// Where a message with counts comes from: park/<site>/counts/<device>/<zone>. The views are parts of the topic.
struct CountsSource {
  std::string_view device;
  std::string_view zone;
};
std::optional<CountsSource> ParseCountsTopic(std::string_view site, std::string_view topic);

struct Plan {
  std::string name;
  std::string zone;
  std::array<std::vector<std::string>, kDirections> shows;  // by DevicePosition
};
inline bool operator==(const Plan& a, const Plan& b) {
  return a.name == b.name && a.zone == b.zone && a.shows == b.shows;
}
// Nothing, with the reason, for what is no plan.
std::optional<Plan> ParsePlan(std::string_view text, std::string* problem);

// What requests of the site may do on this device.
enum class Remote { kOff, kRead, kConfigure };

// Where the device belongs; without a host it belongs to no site.
struct Membership {
  std::string site;
  std::string device;
  std::string host;
  uint16_t port = 0;
  bool tls = false;
  std::string user;  // empty: the device's name, where there is a password
  std::string ca;    // file with the certificates that the hub's must go back to; empty: the system's
  Remote remote = Remote::kOff;
};

// Reads the relay's document. Without "broker" text in it (empty) the other members do not matter. Nothing, with the
// reason, for a document that cannot be acted on.
std::optional<Membership> ParseMembership(std::string_view text, std::string* problem);

}  // namespace relay
