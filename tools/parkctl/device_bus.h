// parkctl's connection to this device's own bus.
#pragma once

#include <cstdint>
#include <string>

#include "bus/caller.h"

namespace parkctl {

using Outcome = bus::Caller::Outcome;

class DeviceBus : public bus::Caller {
 public:
  // Speaks in a role (bus_account.h), where the device keeps accounts and the user may read that one.
  DeviceBus(uint16_t port, const char* role);

  // Waits until the broker has the message and says whether somebody takes its type.
  Outcome Send(const std::string& type, const std::string& data);

  // kDelivered: answer holds the reply. A command may keep the device busy: the wait is the caller's.
  Outcome Ask(const std::string& type, const std::string& data, std::chrono::milliseconds wait, std::string& answer);

  // Says on standard error why there was no answer and what to look at; returns the exit status.
  int Explain(Outcome outcome, const std::string& type) const;
};

}  // namespace parkctl
