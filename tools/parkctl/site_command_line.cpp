// The words of "parkctl site" and "parkctl relay", and the options that name a site.
#include <CLI/CLI.hpp>

#include "command_line.h"

namespace parkctl {

void AddSiteOptions(CLI::App& command, SiteOptions& options) {
  command.add_option("--site", options.address, "The site's hub: mqtts://HOST[:PORT][/SITE] (PARK_SITE)");
  command.add_option("--user", options.user, "Account on the hub (PARK_USER); its password is in PARK_PASSWORD");
  command.add_option("--password-file", options.password_file, "File whose first line is the password");
  command.add_option("--ca", options.ca, "File with the authorities that may vouch for the hub (PARK_CA)");
}

void AddDeviceOptions(CLI::App& command, DeviceOptions& options) {
  command.add_option("--device", options.device, "A device of the site, through its relay");
  AddSiteOptions(command, options.site);
}

}  // namespace parkctl
