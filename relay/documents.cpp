#include "relay/documents.h"

#include <json/reader.h>

#include <charconv>
#include <exception>
#include <memory>

#include "protocol/names.h"

namespace relay {

namespace {

std::unique_ptr<Json::CharReader> MakeStrictReader() {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

// A count is a whole number, 3.0 too.
std::optional<uint32_t> Count(const Json::Value& number) {
  if (!number.isUInt() || number.asUInt() > bs::kSiteSpacesMax) return std::nullopt;
  return number.asUInt();
}

bool ReadZones(const Json::Value& zones, std::vector<std::string>* out) {
  if (zones.isNull()) return true;
  if (!zones.isArray()) return false;
  for (const Json::Value& zone : zones) {
    if (!zone.isString() || !bs::IsZone(zone.asString())) return false;
    out->push_back(zone.asString());
  }
  return true;
}

// Reads a text member; a missing one leaves what is there. False for one of another type, which null is too.
bool ReadText(const Json::Value& document, const char* name, std::string* text) {
  if (!document.isMember(name)) return true;
  if (!document[name].isString()) return false;
  *text = document[name].asString();
  return text->find('\0') == std::string::npos;
}

struct Scheme {
  std::string_view prefix;
  uint16_t port;
  bool tls;
};
constexpr Scheme kSchemes[] = {{"mqtt://", 1883, false}, {"mqtts://", 8883, true}};

bool IsHostCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_';
}

// HOST, HOST:PORT, [ADDRESS] or [ADDRESS]:PORT
bool ReadHost(std::string_view text, Membership* membership) {
  std::string_view port;
  bool has_port = false;
  if (!text.empty() && text.front() == '[') {
    const size_t end = text.find(']');
    if (end == std::string_view::npos) return false;
    const std::string_view rest = text.substr(end + 1);
    text = text.substr(1, end - 1);
    for (const char c : text) {
      if (!IsHostCharacter(c) && c != ':' && c != '%') return false;
    }
    has_port = !rest.empty();
    if (has_port && rest.front() != ':') return false;
    port = has_port ? rest.substr(1) : rest;
  } else {
    const size_t colon = text.find(':');
    has_port = colon != std::string_view::npos;
    if (has_port) port = text.substr(colon + 1);
    text = text.substr(0, colon);
    for (const char c : text) {
      if (!IsHostCharacter(c)) return false;
    }
  }
  if (text.empty()) return false;
  membership->host = text;
  if (!has_port) return true;
  const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), membership->port);
  return error == std::errc() && end == port.data() + port.size() && membership->port != 0;
}

bool ReadBroker(std::string_view broker, Membership* membership) {
  for (const Scheme& scheme : kSchemes) {
    if (broker.substr(0, scheme.prefix.size()) != scheme.prefix) continue;
    membership->tls = scheme.tls;
    membership->port = scheme.port;
    return ReadHost(broker.substr(scheme.prefix.size()), membership);
  }
  return false;
}

bool ReadRemote(const std::string& text, Remote* remote) {
  if (text.empty() || text == "off") {
    *remote = Remote::kOff;
  } else if (text == "read") {
    *remote = Remote::kRead;
  } else if (text == "configure") {
    *remote = Remote::kConfigure;
  } else {
    return false;
  }
  return true;
}

}  // namespace

bool ParseObject(std::string_view text, Json::Value* document) {
  static const std::unique_ptr<Json::CharReader> reader = MakeStrictReader();
  try {
    return reader->parse(text.data(), text.data() + text.size(), document, nullptr) && document->isObject();
  } catch (const std::exception&) {  // nesting beyond the reader's limit
    return false;
  }
}

std::optional<Counts> ParseCounts(std::string_view text) {
  Json::Value document;
  if (text.size() > bs::kCountsBytesMax || !ParseObject(text, &document)) return std::nullopt;
  const auto spaces = Count(document[bs::kSpacesCount]);
  const auto free = Count(document[bs::kFree]);
  if (!spaces || !free || *free > *spaces) return std::nullopt;
  return Counts{*spaces, *free};
}

std::string CountsText(const Counts& counts) {
  return "{\"spaces\": " + std::to_string(counts.spaces) + ", \"free\": " + std::to_string(counts.free) + "}";
}

std::optional<CountsSource> ParseCountsTopic(std::string_view site, std::string_view topic) {
  const std::string_view parts[] = {"park/", site, "/counts/"};
  for (const std::string_view part : parts) {
    if (topic.substr(0, part.size()) != part) return std::nullopt;
    topic.remove_prefix(part.size());
  }
  const size_t slash = topic.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const CountsSource source = {topic.substr(0, slash), topic.substr(slash + 1)};
  if (!bs::IsSiteName(source.device) || !bs::IsZone(source.zone)) return std::nullopt;
  return source;
}

std::optional<Plan> ParsePlan(std::string_view text, std::string* problem) {
  Json::Value document;
  if (!ParseObject(text, &document)) {
    *problem = "no JSON object";
    return std::nullopt;
  }
  Plan plan;
  if (!ReadText(document, bs::kName, &plan.name)) {
    *problem = "\"name\" is no text";
  } else if (!document[bs::kZone].isString() || !bs::IsZone(document[bs::kZone].asString())) {
    *problem = "\"zone\" is no zone";
  } else if (document.isMember(bs::kShows) && !document[bs::kShows].isObject()) {
    *problem = "\"shows\" is no object";
  }
  if (!problem->empty()) return std::nullopt;
  plan.zone = document[bs::kZone].asString();
  for (size_t i = 0; i < kDirections; ++i) {
    const Json::Value& shows = document[bs::kShows];
    if (!shows.isObject() || !shows.isMember(bs::kDirectionNames[i])) continue;
    const Json::Value& zones = shows[bs::kDirectionNames[i]];
    if (zones.isNull() || !ReadZones(zones, &plan.shows[i])) {
      *problem = std::string("\"") + bs::kDirectionNames[i] + "\" is no list of zones";
      return std::nullopt;
    }
  }
  return plan;
}

std::optional<Membership> ParseMembership(std::string_view text, std::string* problem) {
  // Other processes of the device store texts with their NUL counted.
  text = text.substr(0, text.find('\0'));
  Json::Value document;
  if (text.empty()) {
    *problem = "it is empty";
    return std::nullopt;
  }
  if (!ParseObject(text, &document)) {
    *problem = "it is no JSON object";
    return std::nullopt;
  }
  Membership membership;
  std::string broker, remote;
  if (!document.isMember("broker") || !ReadText(document, "broker", &broker)) {
    *problem = "\"broker\" is no text";
    return std::nullopt;
  }
  if (broker.empty()) return membership;

  for (const auto& [name, to] : {std::pair("site", &membership.site), std::pair("device", &membership.device)}) {
    if (ReadText(document, name, to) && bs::IsSiteName(*to)) continue;
    *problem = std::string("\"") + name + "\" is no name (1 to 32 of A-Z a-z 0-9 _ -)";
    return std::nullopt;
  }
  if (!ReadBroker(broker, &membership)) {
    *problem = "\"broker\" is neither mqtt://HOST[:PORT] nor mqtts://HOST[:PORT]";
  } else if (!ReadText(document, "user", &membership.user)) {
    *problem = "\"user\" is no text";
  } else if (!ReadText(document, "ca", &membership.ca)) {
    *problem = "\"ca\" is no text";
  } else if (!ReadText(document, "remote", &remote) || !ReadRemote(remote, &membership.remote)) {
    *problem = "\"remote\" is none of off, read, configure";
  }
  if (!problem->empty()) return std::nullopt;
  return membership;
}

}  // namespace relay
