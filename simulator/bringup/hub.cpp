#include "bringup/hub.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "bringup/network.h"

namespace desk {
namespace {

constexpr const char* kBounds[] = {"max_queued_messages", "max_queued_bytes", "message_size_limit",
                                   "max_packet_size",     "memory_limit",     "persistent_client_expiration",
                                   "set_tcp_nodelay",     "sys_interval"};

}  // namespace

std::string PageListener(int port, const std::string& directory) {
  return "listener " + std::to_string(port) +
         " 127.0.0.1\nprotocol websockets\nsocket_domain ipv4\nallow_anonymous true\nhttp_dir " + directory +
         "\nmessage_size_limit 65536\n";  // after a much longer one a browser hears nothing more
}

bool Hub::MakeFiles(const std::string& installed, const std::string& pages, std::string& problem) {
  std::error_code error;
  std::filesystem::create_directories(directory_, error);
  std::ifstream shipped(installed);
  std::ofstream file(directory_ + "/hub.conf");
  file << "persistence false\nconnection_messages false\nallow_anonymous true\n"
       << (geteuid() == 0 ? "user root\n" : "");
  for (std::string line; std::getline(shipped, line);) {
    const std::string option = line.substr(0, line.find(' '));
    if (std::find(std::begin(kBounds), std::end(kBounds), option) != std::end(kBounds)) file << line << "\n";
  }
  file << "listener " << kHubPort << " " << SiteWires::Address(0) << "\n";
  if (!pages.empty()) file << PageListener(kPagePort, pages);
  file.flush();
  const bool good = file.good() && shipped.eof();
  if (!good) problem = "cannot copy " + installed + " to " + directory_;
  process.Configure({"mosquitto", "-c", directory_ + "/hub.conf"}, directory_);
  return good;
}

}  // namespace desk
