// `simulator --site N`: a car park of N devices, its scripts, and a table of its zones.
#pragma once

#include <string>
#include <vector>

#include "bringup/loop.h"

namespace desk {

struct SiteOptions {
  int devices = 6;
  std::string directory;
  std::string programs;       // where business_server and park_relay are
  std::string configuration;  // where mosquitto.conf and redis.conf are
  std::string pages;          // where the page is; empty: none
  std::vector<std::string> scripts;
  bool stay = false;
};

// The exit statuses are the simulator's.
int RunSite(const SiteOptions& options, const Loop::Condition& interrupted);

}  // namespace desk
