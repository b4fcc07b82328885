#include "device_link.h"

#include <cstdlib>
#include <fstream>
#include <set>

#include "console.h"
#include "plain_words.h"
#include "protocol/commands.h"
#include "protocol/names.h"
#include "protocol/site_names.h"
#include "relay/change_guard.h"

namespace parkctl {

namespace bs = businessserver;

namespace {

std::string OrEnvironment(const std::string& given, const char* name) {
  const char* const value = std::getenv(name);
  return given.empty() && value != nullptr ? value : given;
}

std::string Password(const SiteOptions& options) {
  if (options.password_file.empty()) return OrEnvironment("", "PARK_PASSWORD");
  std::ifstream file(options.password_file);
  std::string line;
  if (!std::getline(file, line)) throw UserError("--password-file: '" + options.password_file + "' has no first line");
  return line;
}

bus::Options HubOptions(const SiteOptions& given) {
  bus::Options options;
  const std::string address = OrEnvironment(given.address, "PARK_SITE");
  if (address.empty()) throw UserError("which site? --site mqtts://HUB[/NAME], or PARK_SITE in the environment");
  const std::optional<bus::Address> parsed = bus::ParseAddress(address);
  if (!parsed) throw UserError("'" + words::Printable(address) + "' is no hub: write mqtts://HOST[:PORT][/SITE]");
  if (!parsed->path.empty() && !bs::IsSiteName(parsed->path)) {
    throw UserError("'" + words::Printable(parsed->path) + "' is no site: 1 to 32 of A-Z a-z 0-9 _ -");
  }
  options.address = *parsed;
  options.user = OrEnvironment(given.user, "PARK_USER");
  options.password = Password(given);
  options.ca = OrEnvironment(given.ca, "PARK_CA");
  options.keep_alive_s = 10;  // it may be far away
  return options;
}

}  // namespace

std::string RelayRefusal(int state, const std::string& error_msg, const std::string& command) {
  if (state != bs::kErrorType.state || error_msg == bs::kErrorType.error_msg) return "";
  const bool reads = bs::IsReadingName(command);
  const bool never = !reads && !bs::IsConfiguringName(command) && !relay::ChangeGuard::Takes(command);
  return std::to_string(state) + " " + words::Printable(error_msg) + ": " +
         (never   ? "no relay carries " + words::Printable(command) + ", say it on the device itself"
          : reads ? "\"parkctl relay set remote=read\" on the device lets a site ask"
                  : "\"parkctl relay set remote=configure\" on the device lets a site set");
}

Hub::Hub(const SiteOptions& options) : Caller(HubOptions(options)) {}

std::string Hub::FindSite() {
  if (!address().path.empty()) return address().path;
  std::set<std::string> sites;
  const auto take = [&](const bus::Message& message) {
    const size_t begin = message.topic.find('/') + 1;
    sites.insert(message.topic.substr(begin, message.topic.find('/', begin) - begin));
  };
  if (!Collect({bs::PlanTopic("+", "+"), bs::HealthTopic("+", "+")}, take)) {
    Explain(Outcome::kNoBroker, "");
    return "";
  }
  if (sites.size() == 1) return *sites.begin();
  std::string names;
  for (const std::string& site : sites) names += (names.empty() ? " has " : ", ") + words::Printable(site);
  Note("which site? The hub" + (sites.empty() ? " shows none" : names) + ": write " + bus::AddressText(address()) +
       "/SITE");
  return "";
}

int Hub::Explain(Outcome outcome, const std::string& what) const {
  const std::string where = "the hub at " + bus::AddressText(address());
  const std::string who = user().empty() ? "nobody (say who with --user)" : words::Printable(user());
  switch (outcome) {
    case Outcome::kDelivered:
    case Outcome::kNobodyListens:
      return kDone;
    case Outcome::kRefused:
      Note(where + " does not let " + who + " write " + what + " (" + refusal() + ")");
      break;
    case Outcome::kSilent:
      Note(where + " does not answer");
      break;
    case Outcome::kNoBroker:
      if (refused()) {
        Note(where + " does not let " + who +
             " in: wrong name or password. PARK_PASSWORD in the environment or --password-file holds it");
      } else {
        Note("no connection to " + where + ": " + problem());
      }
      break;
  }
  return kNoAnswer;
}

DeviceLink::DeviceLink(const DeviceOptions& options) : device_(options.device) {
  if (device_.empty()) {
    if (!options.site.address.empty()) throw UserError("--site: which device of the site? --device NAME");
    bus_.emplace(options.bus_port, options.role);
    connected_ = bus_->Connect();
    return;
  }
  if (!bs::IsSiteName(device_)) {
    throw UserError("--device: '" + words::Printable(device_) + "' is no name: 1 to 32 of A-Z a-z 0-9 _ -");
  }
  hub_.emplace(options.site);
  if (!hub_->Connect()) return;
  site_ = hub_->FindSite();
  no_site_ = site_.empty();
  connected_ = !no_site_;
}

Outcome DeviceLink::Ask(const std::string& type, const std::string& request, std::chrono::milliseconds wait,
                        std::string& answer) {
  if (!connected_) return Outcome::kNoBroker;
  if (bus_) return bus_->Ask(type, request, wait, answer);
  if (type != bs::kBusRequestMessage) throw UserError("a relay carries configuration commands, and nothing else");
  // Below its own account's branch it may read: answers are for whom they are meant.
  const std::string account = hub_->user().empty() ? "parkctl" : hub_->user();
  return hub_->Request(
      {bs::RequestTopic(site_, device_), request, bs::ReplyTopic(site_, account + "/" + bus::RandomText())}, wait,
      answer);
}

int DeviceLink::Explain(Outcome outcome, const std::string& type) const {
  if (bus_) return bus_->Explain(outcome, type);
  if (no_site_) return kNoAnswer;
  switch (outcome) {
    case Outcome::kNobodyListens:
      Note("no relay of " + device_ + " listens in " + site_ +
           ". Is it there (parkctl site status), and were remote requests switched on for it?");
      return kNoAnswer;
    case Outcome::kSilent:
      Note("sent, but no answer came from " + device_ +
           ". parkctl site status shows how it is; --timeout waits longer");
      return kNoAnswer;
    default:
      return hub_->Explain(outcome, bs::RequestTopic(site_, device_));
  }
}

}  // namespace parkctl
