// The board on a desk: its registers, its two serial lines with a beacon module and displays at their ends, the
// recognition process, the neighbours, and the programs around them: broker, store and the daemon itself. Everything
// runs on one loop, which the owner turns; what happens is written into the journal.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bringup/device.h"
#include "bringup/loop.h"
#include "bringup/process.h"
#include "desk/beacon_module.h"
#include "desk/bus_client.h"
#include "desk/bus_watch.h"
#include "desk/journal.h"
#include "desk/lamp.h"
#include "desk/neighbours.h"
#include "desk/recogniser.h"
#include "desk/serial_line.h"
#include "desk/store_client.h"

namespace desk {

class Desk {
 public:
  // Several desks may share a loop.
  explicit Desk(DevicePlan plan) : Desk(std::move(plan), std::make_unique<Loop>()) {}
  Desk(DevicePlan plan, Loop& loop);
  ~Desk();
  Desk(const Desk&) = delete;
  Desk& operator=(const Desk&) = delete;

  // Makes the files, starts store and broker, then the daemon; not the relay, which needs its document first. On
  // failure problem says what is wrong and what to do.
  bool Start(std::string& problem);
  void Stop() { device_.Stop(); }

  // ---- the programs ----
  Process* FindProcess(const std::string& name);  // "broker", "store", "daemon", "relay"; nullptr for others
  void StartProcess(Process& process);
  void KillProcess(Process& process);
  void StopProcess(Process& process);
  bool ready() const { return ready_; }  // the daemon answers on the bus

  // ---- what happens in front of the camera ----
  using Fields = std::vector<std::pair<std::string, std::string>>;
  void CarArrives(size_t space, const std::string& plate, const Fields& fields = {}, bool change = false);
  void CarLeaves(size_t space, const Fields& fields = {}, bool change = false);
  void CrossesLine(size_t space, int value, const Fields& fields = {}, bool change = false);
  void Sees(size_t space, const Fields& fields, bool change = false);  // any other event
  void PublishRecordOf(size_t bytes);                                  // a record cut short or padded

  // ---- what other processes do ----
  void NeighbourPushes(const Neighbour& neighbour) { neighbours_.Push(neighbour); }
  void NeighbourFallsSilent(uint32_t ip);
  void Request(const std::string& command, const std::string& body);
  void ExternalRequest(const std::string& command, const std::string& body);
  void Listen(const std::string& type, const std::string& body);
  void SendSerialData(const std::string& bytes);  // through the daemon, as the front end does
  void Publish(const std::string& topic, const std::string& payload);
  void NameDevice(const std::string& name);
  void StoreSet(const std::string& document, const std::string& text);
  void StoreDelete(const std::string& document);
  void StoreShow(const std::string& document);

  // ---- what a hand on the desk does ----
  void SerialIn(const std::string& bytes) { serial_.Send(bytes); }
  void BeaconBehaves(BeaconManner manner, Loop::Milliseconds delay, const std::string& words);
  void PlugBeacon(bool plugged);

  Loop& loop() { return loop_; }
  const std::string& directory() const { return device_.plan().directory; }  // of the device's files
  Journal& journal() { return journal_; }
  Journal& daemon_log() { return daemon_log_; }  // its lines, one event each
  const Board& board() const { return device_.board; }
  BeaconModule& beacon() { return beacon_; }
  SerialLine& serial() { return serial_; }
  Recogniser& recogniser() { return recogniser_; }
  Neighbours& neighbours() { return neighbours_; }
  StoreClient& store_client() { return store_client_; }
  BusClient& bus() { return bus_; }
  Process& broker() { return device_.broker; }
  Process& store() { return device_.store; }
  Process& daemon() { return device_.daemon; }
  Process& relay() { return device_.relay; }
  pid_t daemon_pid() const { return device_.daemon.pid(); }

  // What the display of a direction ought to show, as somebody knows who sees the whole site.
  using Truth = std::function<std::string(const std::string& direction)>;
  void KnowTruth(Truth truth) { truth_ = std::move(truth); }
  std::string TruthOf(const std::string& direction) const { return truth_ ? truth_(direction) : ""; }

 private:
  Desk(DevicePlan plan, std::unique_ptr<Loop> own_loop);
  bool StartAround(Process& process, std::string& problem);
  void WatchProcess(Process& process);
  void NoteStart(const Process& process);
  void Tick();
  void LookAtLamp();
  void AskSignOfLife();
  void SendRequest(const std::string& topic, const std::string& command, const std::string& body);
  void PublishResult(const std::string& what, bool change);
  void SetFields(size_t space, const Fields& fields);
  std::string Delivered(bool sent) const;

  std::unique_ptr<Loop> own_loop_;
  Loop& loop_;
  Journal journal_;
  Journal daemon_log_;
  Device device_;
  StoreClient store_client_;
  BeaconModule beacon_;
  SerialLine serial_;
  BusWatch bus_watch_;
  BusClient bus_;
  Recogniser recogniser_;
  Neighbours neighbours_;
  Truth truth_;
  bool ready_ = false;
  uint32_t led_data_ = 0;
  uint64_t requests_ = 0;
  uint64_t beacon_pause_ = 0;
  std::vector<uint64_t> timers_;
};

}  // namespace desk
