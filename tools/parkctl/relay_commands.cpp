#include "relay_commands.h"

#include <algorithm>
#include <ctime>
#include <iostream>

#include "bus_account.h"
#include "console.h"
#include "contract/check.h"
#include "contract/schemas.h"
#include "device_bus.h"
#include "plain_words.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "stored_text.h"

namespace parkctl {

namespace bs = businessserver;

namespace {

constexpr char kDocument[] = "documents/relay_value";
constexpr char kBroker[] = "broker";
constexpr time_t kClockWasNeverSet = 1700000000;  // before this software was written

// kNo, with an empty object, for a document that is not there or that nobody can read.
Store::Found ReadMembership(const Store& store, Json::Value& document) {
  std::string text;
  Store::Found found = store.IsUp() ? store.Read(bs::kSiteMembership, text) : Store::Found::kUnreachable;
  if (found == Store::Found::kYes && (!bs::ParseJson(text, document) || !document.isObject())) {
    Note("relay_value holds no document: " + words::Printable(words::Beginning(text, 200)));
    found = Store::Found::kNo;
  }
  if (found != Store::Found::kYes) document = Json::objectValue;
  return found;
}

// Whether the hub can be reached and proves who it is. The relay's password is not parkctl's to read: a hub that asks
// for one has proved enough.
int TellHub(const Json::Value& document) {
  const std::optional<bus::Address> address = bus::ParseAddress(document[kBroker].asString());
  if (!address) return kRefused;
  bus::Options options;
  options.address = *address;
  if (document["ca"].isString()) options.ca = document["ca"].asString();
  bus::Caller hub(options);
  if (hub.Connect() || hub.refused()) {
    std::cout << "its hub at " << bus::AddressText(*address) << " answers\n";
    return kDone;
  }
  std::cout << "its hub at " << bus::AddressText(*address) << " cannot be reached: " << hub.problem() << "\n";
  if (address->tls && time(nullptr) < kClockWasNeverSet) {
    std::cout << "this device's clock says " << words::TimeText(static_cast<uint32_t>(time(nullptr)))
              << ": no certificate is valid yet. The relay keeps trying until the clock is right.\n";
  }
  return kNoAnswer;
}

int Keep(uint16_t store_port, uint16_t bus_port, const Json::Value& before, const Json::Value& after) {
  const std::vector<std::string> changes = Changes(before.empty() ? Json::Value() : before, after);
  for (const std::string& line : changes) std::cout << "  " << line << "\n";
  if (changes.empty()) std::cout << "  no value changes\n";
  {
    const Store store(store_port);
    if (!store.IsUp()) return store.Explain();
    if (!store.Write(bs::kSiteMembership, bs::StyledText(after))) {
      Note("the store did not take it");
      return kNoAnswer;
    }
  }
  // The front end's word, as after any other change of the configuration: the relay reads its document again.
  DeviceBus bus(bus_port, platform::kFrontEndRole);
  Json::Value notice;
  notice[bs::kType] = "relay_changed";
  const bool told =
      bus.Connect() && bus.Send(bs::kHttpBroadcastMessageRoot, words::CompactText(notice)) == Outcome::kDelivered;
  Note(told ? "stored; a running relay goes by it at once"
            : "stored; the bus did not carry the news, so the relay goes by it when it next starts");
  return kDone;
}

}  // namespace

int ShowRelay(uint16_t store_port) {
  Json::Value document;
  {
    const Store store(store_port);
    if (ReadMembership(store, document) == Store::Found::kUnreachable) return store.Explain();
  }
  const bool member = document.get(kBroker, "").isString() && !document.get(kBroker, "").asString().empty();
  if (!document.empty()) std::cout << IndentedText(document) << "\n";
  if (!member) {
    std::cout << "this device belongs to no site\n";
    return kRefused;
  }
  const std::vector<contract::Fault> faults = contract::Check(kDocument, document);
  for (const contract::Fault& fault : faults) std::cerr << fault.Text() << "\n";
  if (!faults.empty()) return kRefused;
  return TellHub(document);
}

int SetRelay(uint16_t store_port, uint16_t bus_port, const std::vector<std::string>& members, bool force) {
  Json::Value before;
  {
    const Store store(store_port);
    if (ReadMembership(store, before) == Store::Found::kUnreachable) return store.Explain();
  }
  Json::Value after = before;
  const std::vector<std::string> known = contract::Members(contract::Schema(kDocument));
  for (const std::string& member : members) {
    const size_t equals = member.find('=');
    const std::string name = member.substr(0, equals);
    if (equals == std::string::npos || std::find(known.begin(), known.end(), name) == known.end()) {
      std::string names;
      for (const std::string& one : known) names += (names.empty() ? "" : ", ") + one;
      throw UserError("'" + words::Printable(member) + "': write NAME=VALUE, with a name of " + names);
    }
    after[name] = member.substr(equals + 1);
    if (equals + 1 == member.size() && name != kBroker) after.removeMember(name);
  }
  if (!force && !SayFaults(contract::Check(kDocument, after))) return kMisused;
  return Keep(store_port, bus_port, before, after);
}

int LeaveSite(uint16_t store_port, uint16_t bus_port) { return SetRelay(store_port, bus_port, {"broker="}); }

}  // namespace parkctl
