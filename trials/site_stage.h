// A car park on trial: a hub and whole devices in networks of their own, supervised, and a witness of everything that
// their cameras see, their buses carry and their displays show.
#pragma once

#include <array>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bringup/device.h"
#include "bringup/hub.h"
#include "bringup/network.h"
#include "bus/kept.h"
#include "desk/beacon_module.h"
#include "desk/bus_client.h"
#include "desk/recogniser.h"
#include "desk/store_client.h"
#include "site/plan.h"
#include "site_judge.h"
#include "temporary_directory.h"

namespace trials {

using desk::Loop;
using Milliseconds = Loop::Milliseconds;

inline constexpr std::array<uint32_t, 2> kWatchedDirections = {businessserver::kLeft, businessserver::kRight};

struct Programs {
  std::string daemon, relay, packaging;
};

class Camera {
 public:
  Camera(Loop& loop, const Programs& programs, const std::string& directory, std::string name, int number);
  Camera(const Camera&) = delete;
  Camera& operator=(const Camera&) = delete;

  // In two steps, so that all devices of a site start together. Exits the program's way: false and a problem.
  bool StartAround(desk::SiteWires& wires, std::string& problem);
  bool StartDevice(const std::string& site, std::string& problem);

  void Toggle(size_t space);  // a car comes or goes
  void Repeat();              // says again what it sees, as after a restart
  void DaemonForgets();       // it takes its spaces for free until it hears of them
  int Free() const;
  int MostFree() const;  // at any instant of the last 70 s

  const std::string name;
  const int number;
  site::Plan plan;
  std::array<int, 4> shown = {-1, -1, -1, -1};  // what its displays show, by direction; -1: nothing yet
  std::array<bool, 4> pushed = {};              // whether its relay has told it of that direction

  desk::Network network;
  desk::Device device;
  desk::BusClient bus;
  bool uncertain = false;  // its daemon may have missed what it saw

 private:
  void ReadLine(const std::string& bytes);
  void Publish(const businessserver::LX_Parking_Result_Param& record);
  void Note(int free);

  Loop& loop_;
  desk::StoreClient store_;
  desk::BeaconModule beacon_;
  desk::Recogniser recogniser_;
  FreeHistory history_;
  std::string line_;
};

class Stage {
 public:
  explicit Stage(const Programs& programs);
  ~Stage();

  // False, with the reason on standard error, when it does not come up.
  bool Start(int devices);

  void HandOut(const Camera& camera);  // its plan, to the hub
  void Move(Camera& camera);           // to another zone
  int TruthOf(const Camera& camera, uint32_t direction) const;

  // Cars come and go, so many a second in all, until paused.
  void SetTraffic(int results_a_second) { rate_ = results_a_second; }

  // Without traffic: until every display shows the truth. The time that it took; a breach when there is none by then.
  Milliseconds AwaitTruth(const std::string& after, Milliseconds limit);

  void Breach(const std::string& what);
  int breaches() const { return breaches_; }
  uint64_t pushes() const { return pushes_; }
  uint64_t results() const { return results_; }
  int Random(int from, int to) { return std::uniform_int_distribution<int>(from, to)(random_); }
  std::vector<Camera*> RandomCameras(size_t count);

  Loop loop;
  desk::SiteWires wires;
  std::vector<std::unique_ptr<Camera>> cameras;

 private:
  const Programs programs_;
  const TemporaryDirectory directory_;

 public:
  desk::Hub hub;

 private:
  static std::string Zone(int number);
  bool Shows(const Camera& camera, uint32_t direction, const Camera& other) const;
  void CheckPush(Camera& camera, const std::string& payload);
  bool AllTrue(std::string* first_false) const;
  void Traffic();

  bus::Kept<Loop> planner_;
  std::mt19937 random_;
  int zones_ = 1;
  int rate_ = 0;
  double due_ = 0;
  Loop::Clock::time_point moved_{};  // when a device last changed its zone
  int breaches_ = 0;
  uint64_t pushes_ = 0;
  uint64_t results_ = 0;
};

}  // namespace trials
