// What the devices, the hub and the tools of a site call things: names, zones, directions, topics, limits.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "protocol/frame_info.h"

namespace businessserver {

inline constexpr size_t kSiteNameMax = 32;             // characters of a site, a device, a part of a zone
inline constexpr size_t kZonePartsMax = 8;             // parts of a zone
inline constexpr uint32_t kSiteSpacesMax = 0x100000;   // beyond these a device finds its counts implausible
inline constexpr int kCountsGoodSeconds = 70;          // a count that was heard is good for these
inline constexpr size_t kCountsBytesMax = 4096;        // of a message with counts
inline constexpr size_t kPlanBytesMax = 65536;         // of a plan: what a hub takes in one message
inline constexpr size_t kDirectionDevicesMax = 16384;  // that a direction counts

// The directions in which a device shows others; a direction's place is its DevicePosition.
inline constexpr std::array<const char*, 4> kDirectionNames = {"group", "left", "right", "front"};
static_assert(kOwnGroup == 0 && kLeft == 1 && kRight == 2 && kFront == 3);

// A site, a device, or one part of a zone: 1 to 32 of A-Z a-z 0-9 _ -.
constexpr bool IsSiteName(std::string_view text) {
  if (text.empty() || text.size() > kSiteNameMax) return false;
  for (const char c : text) {
    const bool plain =
        (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
    if (!plain) return false;
  }
  return true;
}

// 1 to 8 parts joined by "/", e.g. "L2/B".
constexpr bool IsZone(std::string_view text) {
  for (size_t parts = 1; parts <= kZonePartsMax; ++parts) {
    const size_t slash = text.find('/');
    if (!IsSiteName(text.substr(0, slash))) return false;
    if (slash == std::string_view::npos) return true;
    text.remove_prefix(slash + 1);
  }
  return false;
}

// "L2/B" and "L2" are within "L2"; "L20" is not.
constexpr bool IsWithin(std::string_view zone, std::string_view outer) {
  if (zone.substr(0, outer.size()) != outer) return false;
  return zone.size() == outer.size() || zone[outer.size()] == '/';
}

// ---- topics of the hub ----
inline std::string SiteTopic(std::string_view site, std::string_view branch, std::string_view device) {
  return "park/" + std::string(site) + "/" + std::string(branch) + "/" + std::string(device);
}
inline std::string PlanTopic(std::string_view site, std::string_view device) { return SiteTopic(site, "plan", device); }
inline std::string HealthTopic(std::string_view site, std::string_view device) {
  return SiteTopic(site, "health", device);
}
inline std::string RequestTopic(std::string_view site, std::string_view device) {
  return SiteTopic(site, "request", device);
}
// What everything that answers goes below; an account has a branch of its own there.
inline std::string ReplyTopic(std::string_view site, std::string_view rest) { return SiteTopic(site, "reply", rest); }
inline std::string CountsTopic(std::string_view site, std::string_view device, std::string_view zone) {
  return SiteTopic(site, "counts", device) + "/" + std::string(zone);
}
// The counts of a device, wherever it says to be.
inline std::string OwnCountsFilter(std::string_view site, std::string_view device) {
  return CountsTopic(site, device, "#");
}
// The counts of every device in a zone and below it.
inline std::string ZoneFilter(std::string_view site, std::string_view zone) {
  return SiteTopic(site, "counts", "+") + "/" + std::string(zone) + "/#";
}

// ---- members of the site's documents that no other document has ----
inline constexpr char kZone[] = "zone";
inline constexpr char kShows[] = "shows";
inline constexpr char kSpacesCount[] = "spaces";
inline constexpr char kSite[] = "site";
inline constexpr char kDevices[] = "devices";

}  // namespace businessserver
