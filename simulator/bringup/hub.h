// The broker of a site, plain MQTT without accounts, where this program is; it hands out the site's page, too.
#pragma once

#include <string>

#include "bringup/loop.h"
#include "bringup/process.h"

namespace desk {

inline constexpr int kHubPort = 1883;
inline constexpr int kPagePort = 5289;
inline constexpr int kDevicePagePort = 5290;  // of a device on a desk

// Lines of a broker's configuration: a listener on loopback for the page in this directory and its messages.
std::string PageListener(int port, const std::string& directory);

class Hub {
 public:
  Hub(Loop& loop, std::string directory) : process(loop, "hub"), directory_(std::move(directory)) {}

  // Writes the configuration, with the bounds of the installed hub's. pages: the directory of the page, empty for none.
  // On failure problem says what is wrong.
  bool MakeFiles(const std::string& installed, const std::string& pages, std::string& problem);

  Process process;

 private:
  const std::string directory_;
};

}  // namespace desk
