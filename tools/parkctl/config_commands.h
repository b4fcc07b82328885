// "parkctl config": a device's configuration as one file.
#pragma once

#include <string>

#include "config_device.h"

namespace parkctl {

struct ConfigOptions {
  ConfigDeviceOptions device;
  std::string file;           // "-" for standard input; empty: standard output
  int confirm_s = 0;          // seconds after which all goes back unless confirmed; 0: never
  bool yes = false;           // nobody is asked
  bool other_device = false;  // the file may be of another device
  bool replace = false;       // and this one takes its place, with its identity
};

// Each returns the exit status: 0 equal or done, 1 different or refused by the device, 2 no answer, 3 not valid.
int ExportConfiguration(const ConfigOptions& options);
int CheckConfiguration(const ConfigOptions& options);
int ShowDifference(const ConfigOptions& options);
int ApplyConfiguration(const ConfigOptions& options);
int ConfirmConfiguration(const ConfigOptions& options);
int RollBackConfiguration(const ConfigOptions& options);

}  // namespace parkctl
