// A whole device in a directory: the board's files and serial lines, and the programs with their shipped configuration:
// broker, store, the daemon itself and, on a site, the relay. Where they run is one network, so that several devices
// can stand side by side.
#pragma once

#include <string>
#include <vector>

#include "bringup/board.h"
#include "bringup/loop.h"
#include "bringup/network.h"
#include "bringup/process.h"
#include "bringup/pty.h"

namespace desk {

inline constexpr int kBusPort = 5291;
inline constexpr int kStorePort = 5299;

struct DevicePlan {
  std::string directory;                         // where the device's files go; made when it is not there
  std::string daemon;                            // the daemon's program
  std::string configuration;                     // where mosquitto.conf and redis.conf are
  bool keep_store = false;                       // go on with the documents of an earlier run
  std::vector<std::string> daemon_options = {};  // e.g. {"-v", "3"}
  std::string relay = {};                        // the relay's program; empty: the device has none
  std::string broker_lines = {};                 // more of its configuration
  const Network* network = nullptr;              // where the programs run; nullptr: where this one does
};

class Device {
 public:
  // What hangs on the serial lines may listen on a loop of its own, as it does in the field: the daemon waits for it.
  Device(Loop& loop, Loop& serial_loop, DevicePlan plan);
  Device(Loop& loop, DevicePlan plan) : Device(loop, loop, std::move(plan)) {}
  ~Device() { Stop(); }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // Makes the files; to be called once, before any program starts. On failure problem says what is wrong.
  bool MakeFiles(std::string& problem);

  // Starts the program and waits until it says that it is ready; problem is what it said instead.
  bool StartAndAwait(Process& process, std::string& problem);

  void Stop();  // in an order in which none misses another

  std::vector<Process*> Programs() { return {&store, &broker, &daemon, &relay}; }  // in the order of their start
  const DevicePlan& plan() const { return plan_; }
  const Network* network() const { return plan_.network; }
  std::string StoreDirectory() const { return plan_.directory + "/store"; }

  Process broker, store, daemon, relay;
  Board board;
  Pty beacon_line, external_line;

 private:
  bool WriteBrokerConfiguration() const;

  Loop& loop_;
  DevicePlan plan_;
};

bool PortIsFree(int port);  // of 127.0.0.1, here

}  // namespace desk
