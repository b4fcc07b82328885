// What the parts of parkctl's command line share.
#pragma once

#include <CLI/App.hpp>
#include <cstdint>
#include <functional>
#include <vector>

#include "device_link.h"

namespace parkctl {

struct Ports {
  uint16_t bus = 5291;
  uint16_t store = 5299;
};

// What to do, once the whole line was read: ports may come last.
using Action = std::function<int()>;

void AddSiteOptions(CLI::App& command, SiteOptions& options);
void AddDeviceOptions(CLI::App& command, DeviceOptions& options);  // the same, and which device of the site
// For a command that no relay carries: who gives it a site's options is told so, and what does the like from afar.
void RefuseSite(CLI::App& command, const char* instead,
                const std::vector<const char*>& options = {"--site", "--device"});

void AddStore(CLI::App& app, Action& action, const Ports& ports);
void AddConfig(CLI::App& app, Action& action, const Ports& ports);
// "site" and "relay" with all that belongs to them.
void AddSite(CLI::App& app, Action& action);
void AddRelay(CLI::App& app, Action& action, const Ports& ports);

}  // namespace parkctl
