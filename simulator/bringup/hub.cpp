#include "bringup/hub.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "bringup/network.h"

namespace desk {

std::string PageListener(int port, const std::string& directory) {
  return "listener " + std::to_string(port) +
         " 127.0.0.1\nprotocol websockets\nsocket_domain ipv4\nallow_anonymous true\nhttp_dir " + directory + "\n";
}

// The bounds are those of the installed hub: all kept counts of a large site fit into a subscriber's queue, and a page
// gets no message that its websocket chokes on.
bool Hub::MakeFiles(const std::string& pages, std::string& problem) {
  std::error_code error;
  std::filesystem::create_directories(directory_, error);
  std::ofstream file(directory_ + "/hub.conf");
  file << "persistence false\nmax_queued_messages 100000\nmessage_size_limit 65536\nset_tcp_nodelay true\n"
       << "sys_interval 0\nconnection_messages false\nallow_anonymous true\n"
       << (geteuid() == 0 ? "user root\n" : "") << "listener " << kHubPort << " " << SiteWires::Address(0) << "\n";
  if (!pages.empty()) file << PageListener(kPagePort, pages);
  file.flush();
  if (!file.good()) problem = "cannot write to " + directory_;
  process.Configure({"mosquitto", "-c", directory_ + "/hub.conf"}, directory_);
  return file.good();
}

}  // namespace desk
