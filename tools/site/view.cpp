#include "site/view.h"

#include "json_words.h"
#include "plain_words.h"
#include "protocol/json_text.h"
#include "protocol/names.h"

namespace site {

namespace bs = businessserver;

namespace {

using std::chrono::seconds;

constexpr seconds kGood(bs::kCountsGoodSeconds);
// A count that the hub had kept may be that of a device that died long ago; a live one comes within 25 s.
constexpr seconds kKeptGood(30);

constexpr char kOnline[] = "online";
constexpr char kDaemon[] = "daemon";
constexpr char kPlanState[] = "plan";

bool ParseObject(const std::string& payload, Json::Value& document) {
  return payload.size() <= bs::kPlanBytesMax && bs::ParseJson(payload, document) && document.isObject();
}

std::string Text(const Json::Value& object, const char* member) {
  return object.isObject() && object[member].isString() ? object[member].asString() : "";
}

std::optional<uint32_t> Count(const Json::Value& number) {
  if (!number.isUInt() || number.asUInt() > bs::kSiteSpacesMax) return std::nullopt;
  return number.asUInt();
}

std::optional<Counts> CountsOf(const Json::Value& document) {
  const auto spaces = Count(document[bs::kSpacesCount]);
  const auto free = Count(document[bs::kFree]);
  if (!spaces || !free || *free > *spaces) return std::nullopt;
  return Counts{*spaces, *free};
}

// What people have to look at besides the state.
std::vector<std::string> Notes(const Json::Value& health) {
  std::vector<std::string> notes;
  if (!health.isObject()) return notes;
  if (health["duplicate"] == true) notes.push_back("two relays bear this name");
  const Json::Value& shows = health[bs::kShows];
  for (const char* direction : bs::kDirectionNames) {
    const Json::Value& sum = shows.isObject() ? shows[direction] : Json::Value::nullSingleton();
    if (!sum.isObject() || !sum["missing"].isArray() || sum["missing"].empty()) continue;
    std::string names;
    for (const Json::Value& name : sum["missing"]) {
      if (name.isString()) names += (names.empty() ? "" : ", ") + words::Printable(name.asString());
    }
    const auto count = Count(sum["missing_count"]);
    if (count && *count > sum["missing"].size()) {
      names += " and " + std::to_string(*count - sum["missing"].size()) + " more";
    }
    notes.push_back(std::string(direction) + " misses " + names);
  }
  return notes;
}

}  // namespace

std::string HealthWords(const Json::Value& health) {
  const auto free_of = [](const Counts& counts) {
    return std::to_string(counts.free) + " of " + std::to_string(counts.spaces) + " free";
  };
  if (!health.isObject() || health[kOnline] != true) return StateName(State::kOffline);
  std::string words =
      "daemon " + words::Printable(Text(health, kDaemon)) + ", plan " + words::Printable(Text(health, kPlanState));
  if (const auto own = CountsOf(health)) words += ", " + free_of(*own);
  const Json::Value& shows = health[bs::kShows];
  for (const char* direction : bs::kDirectionNames) {
    if (!shows.isObject() || !shows[direction].isObject()) continue;
    if (const auto sum = CountsOf(shows[direction])) words += std::string("; ") + direction + " " + free_of(*sum);
  }
  for (const std::string& note : Notes(health)) words += "; " + note;
  return words;
}

const char* StateName(State state) {
  static constexpr const char* kNames[] = {"offline", "silent", "implausible", "plan unreadable", "no plan", "ok"};
  return kNames[static_cast<size_t>(state)];
}

std::vector<std::string> View::Filters(const std::string& site) {
  return {bs::PlanTopic(site, "+"), bs::HealthTopic(site, "+"), bs::SiteTopic(site, "counts", "#")};
}

void View::Take(std::string_view topic, const std::string& payload, bool kept, Clock::time_point now) {
  const std::string head = "park/" + site_ + "/";
  if (topic.substr(0, head.size()) != head) return;
  topic.remove_prefix(head.size());
  const size_t slash = topic.find('/');
  const std::string_view branch = topic.substr(0, slash);
  topic.remove_prefix(slash == std::string_view::npos ? topic.size() : slash + 1);
  const std::string_view device = topic.substr(0, topic.find('/'));
  const bool deeper = device.size() < topic.size();
  if (!bs::IsSiteName(device) || deeper != (branch == "counts")) {
    ++dropped_;
    return;
  }
  if (branch == "counts") {
    TakeCounts(device, topic.substr(device.size() + 1), payload, kept, now);
    return;
  }
  Device& entry = devices_[std::string(device)];
  if (branch == "plan") {
    entry.has_plan = !payload.empty();
    if (payload.empty()) entry.plan = {};
    if (payload.empty()) plans_.erase(std::string(device));
    if (!payload.empty()) plans_[std::string(device)] = payload;
    Plan plan;
    if (!payload.empty() && ReadPlan(payload, plan)) entry.plan = plan;
  } else if (branch == "health") {
    Json::Value health;
    if (!payload.empty() && (!ParseObject(payload, health) || !health[kOnline].isBool())) {
      ++dropped_;
      return;
    }
    entry.health = health;
    entry.health_at = now;
  }
}

void View::TakeCounts(std::string_view device, std::string_view zone, const std::string& payload, bool kept,
                      Clock::time_point now) {
  Device& entry = devices_[std::string(device)];
  if (payload.empty()) {  // cleared, or its device moved away
    if (entry.counts && entry.counts->zone == zone) entry.counts->good_until = now;
    return;
  }
  Json::Value document;
  const auto counts =
      payload.size() <= bs::kCountsBytesMax && ParseObject(payload, document) ? CountsOf(document) : std::nullopt;
  if (!counts || !bs::IsZone(zone)) {
    ++dropped_;
    return;
  }
  if (kept && entry.counts && entry.counts->good_until > now + kKeptGood) return;  // heard live since
  entry.counts = Heard{std::string(zone), *counts, now + (kept ? kKeptGood : kGood)};
}

State View::StateOf(const Device& device, Clock::time_point now) const {
  const Json::Value& health = device.health;
  if (!health.isObject() || health[kOnline] != true) return State::kOffline;
  if (Text(health, kDaemon) == "silent" || now - device.health_at > kGood) return State::kSilent;
  if (Text(health, kDaemon) == "implausible") return State::kImplausible;
  if (Text(health, kPlanState) == "unreadable") return State::kPlanUnreadable;
  if (Text(health, kPlanState) == "none") return State::kNoPlan;
  // A relay that counts says so every 25 s, whatever an old health that the hub kept may claim.
  if (health.isMember(bs::kSpacesCount) && !CountsNow(device, now)) return State::kSilent;
  return State::kOk;
}

bool View::CountsNow(const Device& device, Clock::time_point now) const {
  return device.counts && device.counts->good_until > now;
}

std::vector<DeviceRow> View::Devices(Clock::time_point now) const {
  std::vector<DeviceRow> rows;
  for (const auto& [name, device] : devices_) {
    if (!device.has_plan && device.health.isNull() && !device.counts) continue;
    DeviceRow row;
    row.device = name;
    row.name = device.plan.name.empty() ? name : device.plan.name;
    row.zone = device.plan.zone.empty() && device.counts ? device.counts->zone : device.plan.zone;
    row.state = StateOf(device, now);
    row.counts = CountsNow(device, now);
    if (device.counts) row.last = device.counts->counts;
    if (!device.counts && device.health.isObject()) row.last = CountsOf(device.health);
    if (row.state != State::kOffline) row.notes = Notes(device.health);
    rows.push_back(std::move(row));
  }
  return rows;
}

std::map<std::string, ZoneRow> View::Zones(Clock::time_point now) const {
  std::map<std::string, ZoneRow> zones;
  for (const auto& [name, device] : devices_) {
    const bool counts = CountsNow(device, now);
    const std::string& zone = counts ? device.counts->zone : device.plan.zone;
    if (zone.empty()) continue;
    for (size_t end = zone.find('/');; end = zone.find('/', end + 1)) {
      ZoneRow& row = zones[zone.substr(0, end)];
      if (counts) {
        ++row.devices;
        row.sum.spaces += device.counts->counts.spaces;
        row.sum.free += device.counts->counts.free;
      }
      if (end == std::string::npos) break;
    }
  }
  return zones;
}

const Json::Value& View::Health(const std::string& device) const {
  const auto found = devices_.find(device);
  return found == devices_.end() ? Json::Value::nullSingleton() : found->second.health;
}

}  // namespace site
