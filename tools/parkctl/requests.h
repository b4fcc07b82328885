// "parkctl request", "external" and "latest": one command to the device, one answer.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "device_link.h"

namespace parkctl {

struct RequestOptions {
  DeviceOptions device;
  double timeout_s = 0;
  std::string message_type;  // the path that the command takes
  std::string command;
  std::string body;    // as given: text, @file or -; empty for none
  bool raw = false;    // the reply's bytes as they came
  bool force = false;  // sent although it is not valid
};

// A request that the device cannot act on is not sent, unless forced.
int RunRequest(const RequestOptions& options);

struct LatestOptions {
  DeviceOptions device;
  double timeout_s = 0;
  bool json = false;
};
int RunLatest(const LatestOptions& options);

// The commands that a path takes.
std::vector<std::string> CommandNames(const std::string& message_type);

}  // namespace parkctl
