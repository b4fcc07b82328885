#include "version_command.h"

#include <fstream>
#include <iostream>

#include "build_identity/build.h"
#include "console.h"
#include "plain_words.h"
#include "protocol/json_text.h"
#include "protocol/site_names.h"

namespace parkctl {

namespace bs = businessserver;

namespace {

constexpr size_t kLongest = 200;  // of a line that somebody else wrote
constexpr int kWidth = 17;
constexpr struct {
  const char* program;
  const char* unit;  // and its directory in /run
} kPrograms[] = {{"business_server", "business-server"}, {"park_relay", "business-server-relay"}};

// "1.0.0 (commit d556de6f12ab)" of the program that its unit has running; empty where none has.
std::string Running(const std::string& run_directory, const std::string& unit, const std::string& program) {
  std::ifstream file(run_directory + "/" + unit + "/version");
  std::string line;
  std::getline(file, line);
  const std::string head = program + " ";
  return line.rfind(head, 0) == 0 ? words::Beginning(line.substr(head.size()), kLongest) : "";
}

void Say(const std::string& who, const std::string& what) {
  std::cout << who << std::string(who.size() < kWidth ? kWidth - who.size() : 1, ' ') << words::Printable(what) << "\n";
}

// What the device's relay keeps at the hub. The device's programs come in one package.
int AskHub(const DeviceOptions& options, std::string& version) {
  Hub hub(options.site);
  if (!hub.Connect()) return hub.Explain(Hub::Outcome::kNoBroker, "");
  const std::string site = hub.FindSite();
  if (site.empty()) return kNoAnswer;
  Json::Value health;
  const auto take = [&](const bus::Message& message) { bs::ParseJson(message.payload, health); };
  if (!hub.Collect({bs::HealthTopic(site, options.device)}, take)) return hub.Explain(Hub::Outcome::kNoBroker, "");
  if (!health.isObject() || !health["version"].isString()) {
    Note(words::Printable(options.device) + " is not online at the hub: nobody says what runs there");
    return kNoAnswer;
  }
  version = words::Beginning(health["version"].asString(), kLongest);
  return kDone;
}

}  // namespace

int ShowVersions(const VersionOptions& options) {
  const std::string own = build::Line("");
  Json::Value found(Json::objectValue);
  found["parkctl"] = own.substr(1);
  int status = kDone;
  if (!options.device.device.empty()) {
    std::string version;
    status = AskHub(options.device, version);
    if (status == kDone) found["park_relay"] = version;
  } else {
    for (const auto& row : kPrograms) {
      const std::string version = Running(options.run_directory, row.unit, row.program);
      if (!version.empty()) found[row.program] = version;
    }
  }
  if (options.json) {
    std::cout << IndentedText(found) << "\n";
    return status;
  }
  Say("parkctl", found["parkctl"].asString());
  for (const auto& row : kPrograms) {
    const bool here = options.device.device.empty();
    if (found.isMember(row.program)) {
      Say(row.program, found[row.program].asString());
    } else if (here) {
      Say(row.program, std::string("not running as the unit ") + row.unit);
    }
  }
  return status;
}

}  // namespace parkctl
