// The device on trial: broker, store and daemon as they are shipped, restarted as soon as they end, as the device's
// supervisor does, and a client that asks and counts.
#pragma once

#include <json/value.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "bringup/board.h"
#include "bringup/loop.h"
#include "bringup/process.h"
#include "bringup/pty.h"
#include "desk/bus_client.h"
#include "desk/store_client.h"

namespace trials {

using desk::Loop;
using Milliseconds = Loop::Milliseconds;

// What a process holds now.
struct Holdings {
  int descriptors = 0;
  int resident_kb = 0;
};

class Rig {
 public:
  // The state of a reply: its "state", 0 for one that is no document.
  using Answered = std::function<void(int state, const std::string& reply)>;

  Rig();
  ~Rig();

  // False, with the reason on standard error, when the device does not come up.
  bool Start(const std::string& daemon, const std::string& packaging);

  // Sends a request and forgets it: answered is called when the reply comes, if ever. False while the broker is away.
  bool Send(const std::string& command, const std::string& body, Answered answered);

  // Asks until there is a reply of state 200. The time that this took, or limit when there is none by then.
  Milliseconds Await(const std::string& command, const std::string& body, Milliseconds limit,
                     std::string* reply = nullptr);

  bool Publish(const std::string& type, const std::string& payload) { return bus.Publish(type, payload); }

  Holdings OfDaemon() const;
  std::string StoreDirectory() const { return directory_ + "/store"; }

  Loop loop;
  desk::BusClient bus{loop};
  desk::StoreClient store_client;
  desk::Process broker{loop, "broker"}, store{loop, "store"}, daemon{loop, "daemon"};
  Milliseconds store_rest{0};                  // before an ended store is started again
  std::map<std::string, int> ended_by_itself;  // by name
  std::map<std::string, uint64_t> heard;       // messages by topic

 private:
  void Supervise();
  void Received(const desk::BusMessage& message);

  std::string directory_;
  desk::Board board_;
  // What hangs on the serial lines listens on its own, as it does in the field: the daemon waits for it.
  Loop serial_loop_;
  desk::Pty beacon_line_{serial_loop_}, external_line_{serial_loop_};
  std::atomic<bool> serial_ends_{false};
  std::thread serial_;
  std::map<std::string, Answered> waiting_;  // by correlation data
  uint64_t requests_ = 0;
  Loop::Clock::time_point store_ended_;
};

// A percentile of durations in ms, "-" for none.
std::string Percentile(std::vector<int> values, int percent);

}  // namespace trials
