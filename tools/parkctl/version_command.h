// Which build is which: of parkctl itself, of the device that it runs on, of a device of a site.
#pragma once

#include <string>

#include "device_link.h"

namespace parkctl {

struct VersionOptions {
  DeviceOptions device{};
  std::string run_directory = "/run";  // the units of the device write there what they start
  bool json = false;
};

int ShowVersions(const VersionOptions& options);

}  // namespace parkctl
