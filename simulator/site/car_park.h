// A car park on one machine: a hub, and whole devices, each with its broker, store, daemon and relay in a network of
// its own; cables that can be pulled; and one who sees all of it and knows what every display ought to show.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bringup/hub.h"
#include "bringup/network.h"
#include "bus/kept.h"
#include "desk/desk.h"
#include "site/plan.h"
#include "site/view.h"

namespace desk {

struct CarParkPlan {
  std::string directory;
  std::string daemon, relay;  // the programs
  std::string configuration;  // where mosquitto.conf and redis.conf are
  std::string pages;          // the directory of the page; empty: the hub hands out none
  site::Site site;
};

// An entrance and so many cameras on two levels; the entrance shows level 1 to the left and level 2 to the right.
site::Site MorningSite(int devices);

class CarPark {
 public:
  CarPark(Loop& loop, CarParkPlan plan);
  ~CarPark() { Stop(); }
  CarPark(const CarPark&) = delete;
  CarPark& operator=(const CarPark&) = delete;

  // Brings it all up in the network that the program is in, which is the hub's, and hands out the plans. On failure
  // problem says what is wrong.
  bool Start(std::string& problem);
  void Stop();

  // ---- what happens to the site ----
  void KillHub();
  void StartHub();
  void FreezeHub();
  void ThawHub();
  void PullCable(const std::string& device);
  void PlugCable(const std::string& device);
  void PowerOff(const std::string& device);  // all of its programs are gone at once
  void PowerOn(const std::string& device);

  Loop& loop() { return loop_; }
  Journal& journal() { return journal_; }  // of all devices, what a visitor would see
  Desk* Find(const std::string& device) const;
  const site::View& view() const { return view_; }
  const site::Site& site() const { return plan_.site; }

  // The free spaces that the device's display of a direction ought to show, counted at the cameras themselves.
  int TruthOf(const std::string& device, const std::string& direction) const;

 private:
  struct Place {
    int number = 0;
    std::unique_ptr<Network> network;
    std::unique_ptr<Desk> desk;
    bool powered = true;
    bool wired = true;
  };

  bool StartDevice(const std::string& name, Place& place, std::string& problem);
  void Retell(const std::string& device, const Event& event);
  void HandOutPlans();
  void Note(const std::string& text) { journal_.Add(Source::kDesk, text); }

  Loop& loop_;
  CarParkPlan plan_;
  Journal journal_;
  SiteWires wires_;
  Hub hub_;
  std::map<std::string, Place> places_;
  site::View view_;
  bus::Kept<Loop> planner_;
  Loop::Clock::time_point last_car_{};
};

}  // namespace desk
