#include "relay/health.h"

namespace relay {

namespace {

constexpr const char* kDaemonWords[] = {"ok", "silent", "implausible"};
constexpr const char* kPlanWords[] = {"ok", "none", "unreadable"};

std::string DirectionText(const Health::Direction& direction) {
  std::string text = "{\"devices\": " + std::to_string(direction.sums.devices) +
                     ", \"spaces\": " + std::to_string(direction.sums.spaces) +
                     ", \"free\": " + std::to_string(direction.sums.free) + ", \"missing\": [";
  for (const std::string& device : direction.missing) {
    if (text.back() != '[') text += ", ";
    text += '"' + device + '"';
  }
  return text + "], \"missing_count\": " + std::to_string(direction.missing_count) + "}";
}

}  // namespace

bool operator==(const HealthState& a, const HealthState& b) {
  return a.daemon == b.daemon && a.plan == b.plan && a.counts_known == b.counts_known && a.shows == b.shows &&
         a.missing_version == b.missing_version && a.rejected == b.rejected && a.duplicate == b.duplicate;
}

// Names and versions hold nothing that JSON would escape.
std::string HealthText(const Health& health) {
  std::string text = "{\"online\": true, \"run\": \"" + health.run + "\", \"daemon\": \"" +
                     kDaemonWords[static_cast<int>(health.state.daemon)] + "\", \"version\": \"" + health.version +
                     "\", \"since\": " + std::to_string(health.since) + ", \"plan\": \"" +
                     kPlanWords[static_cast<int>(health.state.plan)] + "\"";
  if (health.state.counts_known) {
    text += ", \"spaces\": " + std::to_string(health.own.spaces) + ", \"free\": " + std::to_string(health.own.free);
  }
  text += ", \"shows\": {";
  for (size_t i = 0; i < kDirections; ++i) {
    if (!health.state.shows[i]) continue;
    if (text.back() != '{') text += ", ";
    text += std::string("\"") + bs::kDirectionNames[i] + "\": " + DirectionText(health.directions[i]);
  }
  text += "}, \"rejected\": " + std::to_string(health.state.rejected);
  if (health.state.duplicate) text += ", \"duplicate\": true";
  return text + "}";
}

}  // namespace relay
