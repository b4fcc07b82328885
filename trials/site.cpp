// A car park under random results, with everything going wrong: the hub killed, frozen and cut off, relays, daemons and
// brokers killed, devices moved between zones. After every fault each display must show the truth, as it is counted at
// the cameras; at no instant may a relay count more spaces than exist, or more free ones than the cameras saw within
// the last 70 s. Prints a table and every breach; exits nonzero when there was one.
//   site [--devices N] [--rounds N] [--results N] [--daemon PROGRAM] [--relay PROGRAM] [--packaging DIRECTORY]
//   site --sources N [--changes N] [--seconds N]   one relay against so many made-up devices
#include <CLI/CLI.hpp>
#include <cstdio>

#include "build_identity/build.h"
#include "site_sources.h"
#include "site_stage.h"

namespace {

using trials::Camera;
using trials::Milliseconds;
using trials::Stage;

constexpr Milliseconds kAfterACut(20000);
constexpr Milliseconds kAfterAStart(45000);  // with a daemon's or broker's way back before it
constexpr int kTenth = 10;

struct Fault {
  const char* what;
  void (*happen)(Stage& stage);  // and end
  Milliseconds limit;            // from its end to the truth
};

void KillEach(Stage& stage, desk::Process desk::Device::*program) {
  for (Camera* camera : stage.RandomCameras(stage.cameras.size() / kTenth)) (camera->device.*program).Kill();
  stage.loop.RunFor(Milliseconds(3000));
}

void KillHub(Stage& stage) {
  stage.hub.process.Kill();
  stage.loop.RunFor(Milliseconds(5000));
  std::string problem;
  stage.hub.process.Start(problem);
}

void FreezeHub(Stage& stage) {
  stage.hub.process.Freeze();
  stage.loop.RunFor(Milliseconds(10000));
  stage.hub.process.Thaw();
}

void CutOff(Stage& stage) {
  const auto cut = stage.RandomCameras(stage.cameras.size() / 2);
  for (const Camera* camera : cut) stage.wires.Pull(camera->number);
  stage.loop.RunFor(Milliseconds(10000));
  for (const Camera* camera : cut) stage.wires.Plug(camera->number);
}

void Move(Stage& stage) {
  for (Camera* camera : stage.RandomCameras(stage.cameras.size() / kTenth)) stage.Move(*camera);
  stage.loop.RunFor(Milliseconds(1000));
}

void Burst(Stage& stage) {
  stage.SetTraffic(1000);
  stage.loop.RunFor(Milliseconds(1000));
}

constexpr Fault kFaults[] = {
    {"a burst of 1,000 results", Burst, kAfterACut},
    {"the hub is killed, for 5 s", KillHub, kAfterACut},
    {"the hub stands still for 10 s", FreezeHub, kAfterACut},
    {"half of the cables pulled, for 10 s", CutOff, kAfterACut},
    {"a tenth of the relays killed", [](Stage& stage) { KillEach(stage, &desk::Device::relay); }, kAfterAStart},
    {"a tenth of the daemons killed", [](Stage& stage) { KillEach(stage, &desk::Device::daemon); }, kAfterAStart},
    {"a tenth of the brokers killed", [](Stage& stage) { KillEach(stage, &desk::Device::broker); }, kAfterAStart},
    {"a tenth of the devices moved", Move, kAfterACut},
};

int Play(const trials::Programs& programs, int devices, int rounds, int results) {
  Stage stage(programs);
  if (!stage.Start(devices)) return 1;
  printf("%d devices\n%-40s %12s\n", devices, "", "truth after");
  const auto row = [](const char* what, Milliseconds took) {
    printf("%-40s %10.2f s\n", what, static_cast<double>(took.count()) / 1000);
    fflush(stdout);
  };
  row("the start of all", stage.AwaitTruth("start", Milliseconds(120000)));
  for (int round = 0; round < rounds; ++round) {
    for (const Fault& fault : kFaults) {
      stage.SetTraffic(results);
      stage.loop.RunFor(Milliseconds(2000));
      fault.happen(stage);
      stage.SetTraffic(results);
      row(fault.what, stage.AwaitTruth(fault.what, fault.limit));
    }
  }
  printf("%llu results, %llu pushes, %d breaches\n", static_cast<unsigned long long>(stage.results()),
         static_cast<unsigned long long>(stage.pushes()), stage.breaches());
  return stage.breaches() == 0 ? 0 : 1;
}

int PlaySources(const trials::Programs& programs, const trials::SourcesLoad& load) {
  Stage stage(programs);
  trials::SourcesCost cost;
  if (!trials::MeasureSources(stage, load, &cost)) return 1;
  printf(
      "%d sources, all counted after %.2f s\n%d changes a second beside the repetitions: %.2f %% of a core, "
      "%d kB resident, %d kB of it the relay's own\n",
      load.sources, cost.counted_after, load.changes_a_second, cost.share * 100, cost.resident_kb, cost.private_kb);
  return stage.breaches() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  int devices = 100, rounds = 1, results = 100;
  trials::SourcesLoad load;
  load.sources = 0;
  trials::Programs programs = {BINARY_DIRECTORY "/business_server", BINARY_DIRECTORY "/park_relay",
                               PACKAGING_DIRECTORY};
  CLI::App app("A car park of whole devices with everything going wrong");
  app.add_option("--devices", devices, "whole devices")->check(CLI::Range(2, 300));
  app.add_option("--rounds", rounds, "how often each fault happens");
  app.add_option("--results", results, "results a second, of all devices");
  app.add_option("--sources", load.sources, "instead: one relay against so many made-up devices");
  app.add_option("--changes", load.changes_a_second, "of them a second");
  app.add_option("--seconds", load.seconds, "of changes from them");
  app.add_option("--daemon", programs.daemon, "the daemon's program");
  app.add_option("--relay", programs.relay, "the relay's program");
  app.add_option("--packaging", programs.packaging, "where the shipped configuration is");
  app.set_version_flag("--version", build::Line("site"));
  CLI11_PARSE(app, argc, argv);
  std::string problem;
  if (!desk::EnterOwnNetwork(problem)) {
    fprintf(stderr, "%s\n", problem.c_str());
    return 2;
  }
  return load.sources > 0 ? PlaySources(programs, load) : Play(programs, devices, rounds, results);
}
