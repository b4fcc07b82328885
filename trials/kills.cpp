// Kills without waiting: many devices at once, each with its broker, store and daemon in a network of its own, under
// sets as fast as they are answered. One of the three, now and then all, is killed at a random moment and started again
// at once; as soon as the device is back and its documents are read, the next one is. Prints a table and every breach
// of a promise; exits nonzero when there was one.
//   kills [--kills N] [--seconds S] [--devices N] [--daemon PROGRAM] [--packaging DIRECTORY]
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <random>
#include <vector>

#include "traffic.h"
#include "workers.h"

namespace {

using trials::Loop;
using trials::Milliseconds;
using trials::Notes;
using trials::Rig;
using trials::Traffic;

constexpr int kLongestRun = 12;   // ms of full traffic before a kill
constexpr int kAppliedEvery = 8;  // kills: this often the traffic stops and the daemon is asked what it goes by
constexpr int kAllEvery = 20;     // kills: this often everything ends at once

class Device {
 public:
  Device(const trials::Programs& programs, int number) : rig_(programs), random_(static_cast<unsigned>(number)) {}

  bool Start() {
    if (!rig_.Start()) return false;
    traffic_.AwaitReturn("start");
    return true;
  }

  void KillOnce(int number, const Notes& notes) {
    desk::Device& device = rig_.device;
    desk::Process* const each[] = {&device.broker, &device.store, &device.daemon};
    const bool all = number % kAllEvery == kAllEvery - 1;
    desk::Process* const one = each[number % 3];
    const std::string name = all ? "all three at once" : one->name();
    const bool asks = number % kAppliedEvery == 0;

    traffic_.Go(Traffic::Pace::kFull);
    traffic_.RunFor(std::uniform_int_distribution<int>(1, kLongestRun)(random_));
    if (asks) traffic_.Settle();
    for (desk::Process* process : each) {
      if (all || process == one) process->Kill();
    }
    if (asks) traffic_.CheckApplied(name);
    traffic_.Go(Traffic::Pace::kSlow);
    const int back = traffic_.AwaitReturn(name);
    traffic_.CheckDocuments(name);
    notes.Add(name, 1);
    if (!asks) notes.Add("back " + name, back);
  }

  int Finish(const Notes& notes) {
    traffic_.CheckResults("all kills");
    notes.Add("acknowledged", traffic_.acknowledged);
    notes.Add("refused", traffic_.refused);
    notes.Add("results", traffic_.results);
    if (rig_.EndedByThemselves() > 0) trials::Breach("programs ended by themselves");
    return trials::Breaches() == 0 ? 0 : 1;
  }

 private:
  Rig rig_;
  Traffic traffic_{rig_};
  std::mt19937 random_;
};

}  // namespace

int main(int argc, char** argv) {
  int kills = 20000, devices = 12, seconds = 0;
  trials::Programs programs;
  CLI::App app("Kills the programs of many devices, as often as possible");
  app.add_option("--kills", kills, "in all");
  app.add_option("--seconds", seconds, "at most; 0 for as long as it takes");
  app.add_option("--devices", devices, "side by side")->check(CLI::Range(1, 100));
  programs.AddOptions(app, "kills");
  CLI11_PARSE(app, argc, argv);

  const auto start = Loop::Clock::now();
  const auto end = start + std::chrono::seconds(seconds);
  const trials::Tally tally = trials::RunWorkers(devices, [&](int worker, const Notes& notes) {
    trials::EnterQuietNetwork();
    Device device(programs, worker + static_cast<int>(getpid()));
    if (!device.Start()) return 1;
    for (int kill = worker; kill < kills && (seconds == 0 || Loop::Clock::now() < end); kill += devices) {
      device.KillOnce(kill / devices + worker, notes);
    }
    return device.Finish(notes);
  });

  long all = 0;
  printf("| killed | times | back, median (s) | back, at most (s) |\n|---|---:|---:|---:|\n");
  for (const char* name : {"broker", "store", "daemon", "all three at once"}) {
    const auto found = tally.find(std::string("back ") + name);
    const std::vector<int> returns = found == tally.end() ? std::vector<int>() : found->second;
    const long times = trials::Sum(tally, name);
    all += times;
    printf("| %s | %ld | %s | %s |\n", name, times, trials::Seconds(returns, 50).c_str(),
           trials::Seconds(returns, 100).c_str());
  }
  const auto took = std::chrono::duration_cast<std::chrono::seconds>(Loop::Clock::now() - start).count();
  const long failed = trials::Sum(tally, "failed");
  printf("\n%ld kills of %d devices in %lld s; %ld sets acknowledged, %ld refused, %ld results; %s.\n", all, devices,
         static_cast<long long>(took), trials::Sum(tally, "acknowledged"), trials::Sum(tally, "refused"),
         trials::Sum(tally, "results"),
         failed == 0 ? "no breach" : (std::to_string(failed) + " devices with a breach").c_str());
  return failed == 0 && all > 0 ? 0 : 1;
}
