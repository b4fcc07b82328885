// How a command reaches a device: over its own bus, or from afar through the hub of its site and the relay on it.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "bus_account.h"
#include "device_bus.h"

namespace parkctl {

// A site's hub as a person names it. What is left empty comes from the environment: PARK_SITE, PARK_USER, PARK_CA and
// PARK_PASSWORD. A password is never an argument: every user of a machine can read those.
struct SiteOptions {
  std::string address;        // mqtts://HOST[:PORT][/SITE]
  std::string user;           // none: nobody
  std::string password_file;  // its first line is the password
  std::string ca;             // file with the authorities to believe; none: the machine's own
};

class Hub : public bus::Caller {
 public:
  explicit Hub(const SiteOptions& options);  // throws UserError

  // The site that the address names, or else the only one that the hub has plans or healths of; empty, with the reason
  // on standard error, when that is not one.
  std::string FindSite();

  // Says on standard error what went wrong with something sent, and what to look at; returns the exit status.
  int Explain(Outcome outcome, const std::string& what) const;
};

struct DeviceOptions {
  uint16_t bus_port = 0;
  SiteOptions site;
  std::string device;                            // its name in the site; empty: the device that parkctl runs on
  const char* role = platform::kIntegratorRole;  // on this device's own bus
};

// What a relay says of a command that its device's owner lets no site ask: one line with what would help. Empty for
// every other answer.
std::string RelayRefusal(int state, const std::string& error_msg, const std::string& command);

class DeviceLink {
 public:
  explicit DeviceLink(const DeviceOptions& options);  // throws UserError

  bool remote() const { return hub_.has_value(); }

  // kDelivered: answer holds the reply, the device's or, from afar, its relay's.
  Outcome Ask(const std::string& type, const std::string& request, std::chrono::milliseconds wait, std::string& answer);

  // As DeviceBus::Explain.
  int Explain(Outcome outcome, const std::string& type) const;

 private:
  const std::string device_;
  std::string site_;
  std::optional<DeviceBus> bus_;
  std::optional<Hub> hub_;
  bool connected_ = false;
  bool no_site_ = false;  // said already
};

}  // namespace parkctl
