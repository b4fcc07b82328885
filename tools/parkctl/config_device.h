// The device whose configuration is read and set: the one that parkctl runs on, over its bus and store, or one of a
// site, through its relay.
#pragma once

#include <json/value.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "config/config_file.h"
#include "device_link.h"
#include "stored_text.h"

namespace parkctl {

struct ConfigDeviceOptions {
  DeviceOptions device;
  uint16_t store_port = 0;
};

// What came of a question: a reply's state and text, or none.
struct Reply {
  Outcome outcome = Outcome::kSilent;
  int state = 0;
  std::string error_msg;
  Json::Value body;

  bool Came() const { return outcome == Outcome::kDelivered; }
  // What answered is a relay that cannot reach the device, or a guard that cannot reach the store: asked again later it
  // may be answered.
  bool Away() const { return Came() && (state == 503 || state == 504); }
  bool Done() const { return Came() && state == 200; }
};

class ConfigDevice {
 public:
  explicit ConfigDevice(const ConfigDeviceOptions& options);  // throws UserError

  bool remote() const { return remote_; }

  // A name for files that are about this device: "this-device", "garage.L2-B-014".
  std::string FileName() const;

  // What is stored, document by document. A document of which nothing is stored has its default; one without a default
  // is left out. Nothing, with the reason on standard error, when it cannot be known.
  std::optional<config::Configuration> Read();

  // The stored document; null where there is none, nothing when it cannot be known.
  std::optional<Json::Value> ReadDocument(const config::Part& part);

  // What the device answers to a command that takes no body.
  Reply AskDevice(const std::string& command);

  // Stores a document through the device's own command; null takes the relay's document away.
  Reply Set(const config::Part& part, const Json::Value& value);

  // Of the change that is tried: the relay's guard, or that of this device (change_guard_service.h).
  Reply AskGuard(const Json::Value& request);

  // Whether this device's guard was killed while a change waited: the next one sets it back.
  bool ChangeWasLeft() const;

  // Whether a change that came through this device's relay waits: it has a guard of its own.
  bool SiteTriesChange() const;

  // The next question makes a connection of its own. Whoever does not serve one should not rely on it.
  void Disconnect() { link_.reset(); }

  // Says why nothing came; returns the exit status.
  int Explain(const Reply& reply) const;

  // The same of a guard that cannot reach the store.
  int ExplainAway(const Reply& reply) const;

 private:
  Reply Ask(const std::string& topic, const Json::Value& request);
  Reply SetRelayDocument(const Json::Value& value);

  const ConfigDeviceOptions options_;
  const bool remote_;
  std::optional<DeviceLink> link_;
  std::optional<Store> store_;  // of this device
};

// "relay_value", which the daemon does not know.
extern const businessserver::StoredDocument kRelayValue;

// Where the guard of this device listens.
constexpr char kChangeRequestMessage[] = "CHANGE_REQUEST_MESSAGE";

}  // namespace parkctl
