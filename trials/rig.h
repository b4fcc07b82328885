// The device on trial: broker, store and daemon as they are shipped, restarted as soon as they end, as the device's
// supervisor does, and a client that asks and counts.
#pragma once

#include <json/value.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "bringup/device.h"
#include "bringup/loop.h"
#include "desk/bus_client.h"
#include "desk/store_client.h"
#include "temporary_directory.h"

namespace trials {

using desk::Loop;
using Milliseconds = Loop::Milliseconds;

// What a process holds now.
struct Holdings {
  int descriptors = 0;
  int resident_kb = 0;
};

// What is on trial: the programs as they were built, the configuration as it is shipped.
struct Programs {
  std::string daemon, packaging;

  void AddOptions(CLI::App& app, const std::string& trial);
};

class Rig {
 public:
  // The state of a reply: its "state", 0 for one that is no document.
  using Answered = std::function<void(int state, const std::string& reply)>;

  explicit Rig(const Programs& programs);
  ~Rig();

  // False, with the reason on standard error, when the device does not come up.
  bool Start();

  // Sends a request and forgets it: answered is called when the reply comes, if ever. False while the broker is away.
  bool Send(const std::string& command, const std::string& body, Answered answered);

  // Asks until there is a reply of state 200. The time that this took, or limit when there is none by then.
  Milliseconds Await(const std::string& command, const std::string& body, Milliseconds limit,
                     std::string* reply = nullptr);

  bool Publish(const std::string& type, const std::string& payload) { return bus.Publish(type, payload); }

  Holdings OfDaemon() const;

  // Reports what ended by itself; how often that was in all.
  int EndedByThemselves() const;

  Loop loop;

 private:
  // What hangs on the serial lines listens on its own, as it does in the field: the daemon waits for it.
  Loop serial_loop_;
  const TemporaryDirectory directory_;

 public:
  desk::Device device;
  desk::BusClient bus{loop};
  desk::StoreClient store_client;
  std::map<std::string, int> ended_by_itself;  // by name
  std::map<std::string, uint64_t> heard;       // messages by topic

 private:
  void Received(const desk::BusMessage& message);

  std::atomic<bool> serial_ends_{false};
  std::thread serial_;
  std::map<std::string, Answered> waiting_;  // by correlation data
  uint64_t requests_ = 0;
};

// Into a network of its own, where the device's ports are free; where that is not to be had, it says so and goes on.
void EnterQuietNetwork();

// A percentile of durations in ms, "-" for none.
std::string Percentile(std::vector<int> values, int percent);
std::string Seconds(std::vector<int> values, int percent);  // the same in s

}  // namespace trials
