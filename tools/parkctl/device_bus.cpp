#include "device_bus.h"

#include "console.h"

namespace parkctl {

namespace {

bus::Options OwnBus(uint16_t port, const char* role) {
  bus::Options options;
  options.address.port = port;
  options.role = role;
  return options;
}

}  // namespace

DeviceBus::DeviceBus(uint16_t port, const char* role) : Caller(OwnBus(port, role)) {}

Outcome DeviceBus::Send(const std::string& type, const std::string& data) { return Publish({type, data}); }

Outcome DeviceBus::Ask(const std::string& type, const std::string& data, std::chrono::milliseconds wait,
                       std::string& answer) {
  // Below its account's own branch: no other account reads there.
  return Request({type, data, "reply/" + user() + "/" + bus::RandomText()}, wait, answer);
}

int DeviceBus::Explain(Outcome outcome, const std::string& type) const {
  const std::string where = address().host + ":" + std::to_string(address().port);
  switch (outcome) {
    case Outcome::kDelivered:
      return kDone;
    case Outcome::kNobodyListens:
      Note("nobody on the bus takes " + type + ". Is the daemon up (business_server)?");
      break;
    case Outcome::kRefused:
      Note("the bus does not let " + user() + " send " + type + ".");
      break;
    case Outcome::kSilent:
      Note(
          "sent, but no answer came. Is the daemon up (business_server), or busy? Its log says what it does; "
          "--timeout waits longer.");
      break;
    case Outcome::kNoBroker:
      if (refused()) {
        Note("the bus at " + where + " wants the account of " + user() + ", which is for members of the group " +
             "business-server-" + user() + " to read.");
        break;
      }
      Note("no bus at " + where + " (" + problem() + "). Is the broker up (mosquitto)?");
      break;
  }
  return kNoAnswer;
}

}  // namespace parkctl
