#include "site/plan.h"

#include <json/reader.h>

#include <algorithm>
#include <exception>
#include <memory>

#include "contract/check.h"
#include "contract/faults.h"
#include "contract/json_text.h"
#include "contract/schemas.h"
#include "json_words.h"
#include "plain_words.h"
#include "protocol/names.h"
#include "site/repeated_keys.h"

namespace site {

namespace bs = businessserver;

namespace {

constexpr char kSchema[] = "site/site_file";
constexpr size_t kSpacesOfDevice = 3;

bool ParseLeniently(std::string_view text, Json::Value& document) {
  Json::CharReaderBuilder builder;
  builder["collectComments"] = false;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  try {
    return reader->parse(text.data(), text.data() + text.size(), &document, nullptr);
  } catch (const std::exception&) {  // nested too deep
    return false;
  }
}

// "devices.L2-B-014.zone" as the place in a device's plan.
Mistake TwiceThere(const RepeatedKey& key) {
  Mistake mistake;
  auto at = key.path.begin();
  if (key.path.size() >= 2 && *at == bs::kDevices) {
    mistake.device = *++at;
    ++at;
  }
  for (; at != key.path.end(); ++at) mistake.field += (mistake.field.empty() ? "" : ".") + *at;
  mistake.reason = "stands there twice, again on line " + std::to_string(key.line);
  return mistake;
}

std::vector<std::string> Zones(const Json::Value& list) {
  std::vector<std::string> zones;
  if (!list.isArray()) return zones;
  for (const Json::Value& zone : list) {
    if (zone.isString() && bs::IsZone(zone.asString())) zones.push_back(zone.asString());
  }
  return zones;
}

// What of it makes sense; the rest is said elsewhere.
Plan PlanOf(const Json::Value& document) {
  Plan plan;
  if (!document.isObject()) return plan;
  if (document[bs::kName].isString()) plan.name = document[bs::kName].asString();
  const Json::Value& zone = document[bs::kZone];
  if (zone.isString() && bs::IsZone(zone.asString())) plan.zone = zone.asString();
  const Json::Value& shows = document[bs::kShows];
  if (!shows.isObject()) return plan;
  for (size_t i = 0; i < kDirections; ++i) plan.shows[i] = Zones(shows[bs::kDirectionNames[i]]);
  return plan;
}

// What a zone's name sounds like: letters and digits, whatever stands between them.
std::string Sound(std::string_view zone) {
  std::string sound;
  for (const char c : zone) {
    if (c != '/' && c != '-' && c != '_') sound += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  }
  return sound;
}

// A zone that there is and that was perhaps meant: written a little otherwise, or without what stands before it.
// Neighbours differ by one letter, so that a slip of the keyboard proves nothing.
std::string Meant(const std::string& zone, const std::map<std::string, size_t>& zones) {
  for (const auto& [known, count] : zones) {
    const std::string tail = known.substr(known.size() - std::min(known.size(), zone.size() + 1));
    if (tail == "/" + zone || Sound(known) == Sound(zone)) return "; did you mean " + known + "?";
  }
  return "";
}

size_t PlanBytes(const Plan& plan) {
  size_t texts = plan.name.size();
  for (const auto& zones : plan.shows) texts += zones.size() * (bs::kSiteNameMax * bs::kZonePartsMax + 12);
  return texts < bs::kPlanBytesMax / 8 ? texts : words::CompactText(PlanDocument(plan)).size();
}

class Checker {
 public:
  Checker(const Site& site, std::vector<Mistake>& mistakes)
      : site_(site), zones_(DevicesByZone(site)), mistakes_(mistakes) {}

  void Run() {
    if (site_.devices.empty()) mistakes_.push_back({"", bs::kDevices, "there are none"});
    for (const auto& [name, plan] : site_.devices) Device(name, plan);
  }

 private:
  void Device(const std::string& name, const Plan& plan) {
    size_t counted = 1;
    for (size_t i = 0; i < kDirections; ++i) counted += Direction(name, plan, i);
    if (counted * kSpacesOfDevice > bs::kSiteSpacesMax) {
      mistakes_.push_back({name, bs::kShows,
                           "counts " + std::to_string(counted * kSpacesOfDevice) +
                               " spaces in all, a device believes " + std::to_string(bs::kSiteSpacesMax)});
    }
    const size_t bytes = PlanBytes(plan);
    if (bytes > bs::kPlanBytesMax) {
      mistakes_.push_back({name, "",
                           "the plan has " + std::to_string(bytes) + " bytes, a hub takes " +
                               std::to_string(bs::kPlanBytesMax) + ": name outer zones"});
    }
  }

  // How many devices the direction counts.
  size_t Direction(const std::string& device, const Plan& plan, size_t direction) {
    const std::string field = std::string("shows.") + bs::kDirectionNames[direction];
    const std::vector<std::string>& zones = plan.shows[direction];
    size_t counted = 0;
    bool itself = false;
    bool sound = true;
    std::vector<std::string> sorted = zones;
    std::sort(sorted.begin(), sorted.end());
    for (size_t i = 0; i < sorted.size(); ++i) {
      const std::string& zone = sorted[i];
      const auto found = zones_.find(zone);
      std::string wrong;
      if (i > 0 && zone == sorted[i - 1]) {
        wrong = zone + " stands there twice";
      } else if (found == zones_.end()) {
        wrong = zone + " holds no device" + Meant(zone, zones_);
      } else if (const std::string outer = Outer(zone, sorted); !outer.empty()) {
        wrong = zone + " is within " + outer + ", which stands there too";
      }
      if (!wrong.empty()) {
        mistakes_.push_back({device, field, wrong});
        sound = false;
        continue;
      }
      counted += found->second;
      itself = itself || bs::IsWithin(plan.zone, zone);
    }
    if (itself) --counted;  // never itself
    if (sound && !zones.empty() && counted == 0) {
      mistakes_.push_back({device, field, "shows nothing: its zones hold no other device than this one"});
    }
    if (counted > bs::kDirectionDevicesMax) {
      mistakes_.push_back({device, field,
                           "counts " + std::to_string(counted) + " devices, a relay takes " +
                               std::to_string(bs::kDirectionDevicesMax)});
    }
    return counted;
  }

  // The zone of the list that holds this one; empty for none.
  static std::string Outer(const std::string& zone, const std::vector<std::string>& sorted) {
    for (size_t slash = zone.find('/'); slash != std::string::npos; slash = zone.find('/', slash + 1)) {
      std::string outer = zone.substr(0, slash);
      if (std::binary_search(sorted.begin(), sorted.end(), outer)) return outer;
    }
    return "";
  }

  const Site& site_;
  const std::map<std::string, size_t> zones_;
  std::vector<Mistake>& mistakes_;
};

}  // namespace

std::string Mistake::Text() const {
  std::string text = words::Printable(device);
  if (!field.empty()) text += (text.empty() ? "" : " ") + words::Printable(field);
  return text.empty() ? reason : text + ": " + reason;
}

Site ReadSite(std::string_view text, std::vector<Mistake>& mistakes) {
  const std::vector<RepeatedKey> repeated = RepeatedKeys(text);
  for (const RepeatedKey& key : repeated) mistakes.push_back(TwiceThere(key));
  Json::Value document;
  std::string problem;
  if (!contract::ParseStrictly(text, contract::Comments::kRefused, document, problem) &&
      (repeated.empty() || !ParseLeniently(text, document))) {
    mistakes.push_back({"", "", "the file " + problem});
    return {};
  }
  return SiteOf(document, mistakes);
}

Site SiteOf(const Json::Value& document, std::vector<Mistake>& mistakes) {
  Site site;
  // The file without its devices first, then each device: a mistake names the device that it is in.
  Json::Value frame = document;
  if (document.isObject() && document[bs::kDevices].isObject()) frame[bs::kDevices] = Json::objectValue;
  for (const contract::Fault& fault : contract::Check(kSchema, frame))
    mistakes.push_back({"", fault.place, fault.reason});
  if (!document.isObject()) return site;
  const Json::Value& name = document[bs::kSite];
  if (name.isString() && bs::IsSiteName(name.asString())) site.name = name.asString();
  const Json::Value& devices = document[bs::kDevices];
  if (!devices.isObject()) return site;
  const Json::Value& device_schema = contract::Schema(kSchema)["properties"][bs::kDevices];
  for (const std::string& device : devices.getMemberNames()) {
    if (!bs::IsSiteName(device)) {
      mistakes.push_back({device, "", "is no name of a device: " + contract::Expected(device_schema["propertyNames"])});
    }
    for (const contract::Finding& finding :
         contract::FindFaults(device_schema["additionalProperties"], devices[device])) {
      mistakes.push_back({device, finding.fault.place, finding.fault.reason});
    }
    site.devices[device] = PlanOf(devices[device]);
  }
  return site;
}

void CheckSite(const Site& site, std::vector<Mistake>& mistakes) { Checker(site, mistakes).Run(); }

Json::Value PlanDocument(const Plan& plan) {
  Json::Value document(Json::objectValue);
  if (!plan.name.empty()) document[bs::kName] = plan.name;
  document[bs::kZone] = plan.zone;
  for (size_t i = 0; i < kDirections; ++i) {
    for (const std::string& zone : plan.shows[i]) document[bs::kShows][bs::kDirectionNames[i]].append(zone);
  }
  return document;
}

Json::Value SiteDocument(const Site& site) {
  Json::Value document;
  document[bs::kSite] = site.name;
  document[bs::kDevices] = Json::objectValue;
  for (const auto& [name, plan] : site.devices) document[bs::kDevices][name] = PlanDocument(plan);
  return document;
}

bool ReadPlan(std::string_view text, Plan& plan) {
  Json::Value document;
  std::string problem;
  if (!contract::ParseStrictly(text, contract::Comments::kRefused, document, problem)) return false;
  if (!contract::FindFaults(contract::Schema("site/plan"), document).empty()) return false;
  plan = PlanOf(document);
  return true;
}

std::map<std::string, size_t> DevicesByZone(const Site& site) {
  std::map<std::string, size_t> zones;
  for (const auto& [name, plan] : site.devices) {
    if (plan.zone.empty()) continue;
    for (size_t slash = plan.zone.find('/'); slash != std::string::npos; slash = plan.zone.find('/', slash + 1)) {
      ++zones[plan.zone.substr(0, slash)];
    }
    ++zones[plan.zone];
  }
  return zones;
}

}  // namespace site
