#include "bringup/device.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "board_devices.h"

namespace desk {
namespace {

namespace fs = std::filesystem;

constexpr Loop::Milliseconds kStartLimit(10000);

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// After a day without results the daemon ends its sibling programs by name: on a desk, nobody's.
bool WriteHarmlessKillall(const std::string& directory) {
  std::error_code error;
  fs::create_directories(directory, error);
  const std::string program = directory + "/killall";
  std::ofstream(program) << "#!/bin/sh\necho \"not on a desk: killall $*\" >&2\n";
  return chmod(program.c_str(), 0755) == 0;
}

}  // namespace

bool PortIsFree(int port) {
  const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int yes = 1;
  setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  const sockaddr_in address = Loopback(port);
  const bool free = bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(probe);
  return free;
}

Device::Device(Loop& loop, Loop& serial_loop, DevicePlan plan)
    : broker(loop, "broker"),
      store(loop, "store"),
      daemon(loop, "daemon"),
      relay(loop, "relay"),
      beacon_line(serial_loop),
      external_line(serial_loop),
      loop_(loop),
      plan_(std::move(plan)) {}

bool Device::MakeFiles(std::string& problem) {
  std::error_code error;
  fs::create_directories(plan_.directory, error);
  for (std::string* path : {&plan_.directory, &plan_.daemon, &plan_.configuration}) {
    *path = fs::absolute(*path, error).string();
  }
  const std::string& directory = plan_.directory;
  for (const char* leftover : {"dev", "log"}) fs::remove_all(directory + "/" + leftover, error);
  if (!plan_.keep_store) fs::remove_all(StoreDirectory(), error);
  fs::create_directories(StoreDirectory(), error);
  if (error) {
    problem = "cannot make " + directory + ": " + error.message();
    return false;
  }
  if (!WriteHarmlessKillall(directory + "/bin")) {
    problem = "cannot write to " + directory + "/bin";
    return false;
  }
  if (!WriteBrokerConfiguration()) {
    problem = "cannot copy " + plan_.configuration + "/mosquitto.conf to " + directory;
    return false;
  }
  broker.Configure({"mosquitto", "-c", directory + "/mosquitto.conf"}, directory, network());
  store.Configure({"redis-server", plan_.configuration + "/redis.conf", "--dir", StoreDirectory()}, directory,
                  network());
  std::vector<std::string> command = {"/usr/bin/env", "PATH=" + directory + "/bin:/usr/bin:/bin", plan_.daemon};
  command.insert(command.end(), plan_.daemon_options.begin(), plan_.daemon_options.end());
  daemon.Configure(command, directory, network());
  if (!plan_.relay.empty()) relay.Configure({fs::absolute(plan_.relay)}, directory, network());
  return board.Create(directory, problem) && beacon_line.Open(directory + "/" + board_devices::kBeaconLine, problem) &&
         external_line.Open(directory + "/" + board_devices::kExternalLine, problem);
}

// A broker started by root gives its rights away, and with them the tie that ends it together with the desk. On a desk
// it keeps them.
bool Device::WriteBrokerConfiguration() const {
  std::ifstream shipped(plan_.configuration + "/mosquitto.conf");
  std::ofstream own(plan_.directory + "/mosquitto.conf");
  for (std::string line; std::getline(shipped, line);) {
    if (line.compare(0, 5, "user ") != 0) own << line << '\n';
  }
  if (geteuid() == 0) own << "user root\n";
  own << plan_.broker_lines;
  return shipped.eof() && own.good();
}

bool Device::StartAndAwait(Process& process, std::string& problem) {
  const char* ready = &process == &store    ? "Ready to accept connections"
                      : &process == &broker ? " running"
                                            : "the bus is connected";
  std::string last_line;
  bool said = false;
  process.OnLine([&](const std::string& line) {
    last_line = line;
    said = said || line.find(ready) != std::string::npos;
  });
  if (!process.Start(problem)) return false;
  loop_.RunUntil([&] { return said || !process.running(); }, kStartLimit);
  process.OnLine({});
  if (said && process.running()) return true;
  problem = "the " + process.name() + " did not start: " + (last_line.empty() ? "no answer" : last_line);
  return false;
}

void Device::Stop() {
  for (Process* process : {&relay, &daemon, &broker, &store}) process->Stop();
}

}  // namespace desk
