// What a relay costs: from the camera that sees a car to the one that shows it, against three bare MQTT hops over the
// same brokers; and its memory and processor time.
//   measure_site BIN_DIR SOURCE_DIR OUTPUT_DIR [--quick]
#include <sched.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "../trials/site_sources.h"
#include "bringup/device.h"
#include "bringup/hub.h"
#include "bringup/network.h"
#include "desk/bus_client.h"
#include "desk/store_client.h"
#include "protocol/names.h"
#include "report.h"
#include "statistics.h"
#include "temporary_directory.h"

namespace {

namespace bs = businessserver;
using desk::Loop;
using desk::SiteWires;
using Milliseconds = Loop::Milliseconds;

// What forwards without reading, beside the relays: in one loop each, and with a thread for each connection.
struct Bare {
  const char* name;
  const char* option;  // of the forwarder
  const char* up;      // topics on leaf, hub and shower
  const char* across;
  const char* down;
};
constexpr Bare kBare[] = {
    {"three bare hops, one loop for both sides", nullptr, "bench/loop/up", "bench/loop/across", "bench/loop/down"},
    {"three bare hops, a thread for each side", "--threads", "bench/thread/up", "bench/thread/across",
     "bench/thread/down"},
};
constexpr Milliseconds kLimit(10000);
// A relay pushes once in 500 ms at most. The ways are asked in turn, each after the same rest.
constexpr Milliseconds kRest(180);

struct Effort {
  int rounds;
  int events;  // in a round, each way
  int idle_seconds;
  int load_seconds;
};
constexpr Effort kFull = {12, 20, 60, 60};
constexpr Effort kQuick = {5, 10, 10, 10};

[[noreturn]] void Fail(const std::string& what) { throw std::runtime_error(what); }

// A device without its daemon, whose part is played here.
struct End {
  End(Loop& loop, const std::string& programs, const std::string& packaging, const std::string& directory)
      : device(loop, {directory, "unused", packaging, false, {}, programs + "/park_relay", "", &network}),
        forwarders{{{loop, "loops"}, {loop, "threads"}}},
        bus(loop, &network),
        store(&network) {}

  desk::Network network;
  desk::Device device;
  std::array<desk::Process, std::size(kBare)> forwarders;
  desk::BusClient bus;
  desk::StoreClient store;
};

class TwoDevices {
 public:
  TwoDevices(const std::string& programs, const std::string& packaging)
      : packaging_(packaging),
        hub_(loop_, directory_.path / "hub"),
        leaf_(loop_, programs, packaging, directory_.path / "leaf"),
        shower_(loop_, programs, packaging, directory_.path / "shower"),
        planner_(loop_, HubOptions(), {}) {
    std::string problem;
    if (!wires_.Start(problem) || !hub_.MakeFiles(packaging_ + "/site/mosquitto.conf", "", problem) ||
        !hub_.process.Start(problem)) {
      Fail(problem);
    }
    planner_.Start();
    const std::string bus = std::to_string(desk::kBusPort), hub = std::to_string(desk::kHubPort);
    const std::string program = programs + "/bench_forwarder";
    for (size_t i = 0; i < std::size(kBare); ++i) {
      const Bare& bare = kBare[i];
      std::vector<std::string> up = {program, "127.0.0.1", bus, bare.up, SiteWires::Address(0), hub, bare.across};
      std::vector<std::string> down = {program, SiteWires::Address(0), hub, bare.across, "127.0.0.1", bus, bare.down};
      for (auto* command : {&up, &down}) {
        if (bare.option != nullptr) command->push_back(bare.option);
      }
      leaf_.forwarders[i].Configure(up, directory_.path, &leaf_.network);
      shower_.forwarders[i].Configure(down, directory_.path, &shower_.network);
    }
    std::filesystem::create_directory(directory_.path / "log");
    Start(leaf_, 1, "leaf");
    Start(shower_, 2, "shower");
    shower_.bus.OnMessage([this](const desk::BusMessage& message) {
      if (message.topic != awaited_topic_ || message.payload.find(awaited_text_) == std::string::npos) return;
      if (!arrived_) arrival_ = Loop::Clock::now();
      arrived_ = true;
    });
    if (!loop_.RunUntil([this] { return planner_.up(); }, kLimit)) Fail("no hub");
    Plan("leaf", R"({"zone": "L2"})");
    Plan("shower", R"({"zone": "L1", "shows": {"left": ["L2"]}})");
    // What comes before all subscriptions stand is lost.
    for (int free = 0; free < 50 && !(ByRelays(free, kRest) > 0); ++free) {
    }
    for (const Bare& bare : kBare) {
      for (int tries = 0; tries < 50 && !(ByForwarders(bare, kRest) > 0); ++tries) {
      }
    }
    if (!SetRealTime()) fprintf(stderr, "no real-time priority: what else runs here stands between\n");
    for (int i = 0; i < 3; ++i) Rest();  // the last push was a moment ago
  }

  // Seconds from the one bus to the other, 0 when nothing came.
  double ByRelays(int free, Milliseconds limit = kLimit) {
    const std::string counts = R"("totle":1000,"free":)" + std::to_string(free);
    return Take(bs::kBusBroadcastMessage, R"({"type":"frame_changed","body":{)" + counts + R"(,"cm_dev":null}})",
                bs::kBusNetPush, "\"free\": " + std::to_string(free) + ",", limit);
  }
  double ByForwarders(const Bare& bare, Milliseconds limit = kLimit) {
    const std::string number = std::to_string(++last_number_);
    return Take(bare.up, R"({"type":"frame_changed","body":{"totle":1000,"free":)" + number + R"(,"cm_dev":null}})",
                bare.down, ":" + number + ",", limit);
  }
  void Rest() { loop_.RunFor(kRest); }

 private:
  static bus::Options HubOptions() {
    bus::Options options;
    options.address = {SiteWires::Address(0), desk::kHubPort, false, ""};
    return options;
  }

  void Start(End& end, int number, const std::string& name) {
    std::string problem;
    if (!end.network.Make(problem) || !wires_.Join(number, end.network, problem) || !end.device.MakeFiles(problem) ||
        !end.device.StartAndAwait(end.device.store, problem) || !end.device.StartAndAwait(end.device.broker, problem)) {
      Fail(problem);
    }
    if (!end.store.Set("relay_value", R"({"site": "bench", "device": ")" + name + R"(", "broker": "mqtt://)" +
                                          SiteWires::Address(0) + "\"}")) {
      Fail("the store of " + name + " does not answer");
    }
    if (!end.device.relay.Start(problem)) Fail(problem);
    for (desk::Process& forwarder : end.forwarders) {
      if (!forwarder.Start(problem)) Fail(problem);
    }
    end.bus.Start();
    if (!loop_.RunUntil([&] { return end.bus.connected(); }, kLimit)) Fail("the bus of " + name + " does not answer");
  }

  void Plan(const std::string& device, const std::string& text) {
    bus::Message message{"park/bench/plan/" + device, text};
    message.retained = true;
    planner_.Publish(message);
  }

  double Take(const char* topic, const std::string& payload, const char* awaited, const std::string& text,
              Milliseconds limit) {
    awaited_topic_ = awaited;
    awaited_text_ = text;
    arrived_ = false;
    const auto begin = Loop::Clock::now();
    leaf_.bus.Publish(topic, payload);
    if (!loop_.RunUntil([this] { return arrived_; }, limit)) return 0;
    return std::chrono::duration<double>(arrival_ - begin).count();
  }

  bool SetRealTime() {
    sched_param priority = {};
    priority.sched_priority = 1;
    bool all = sched_setscheduler(0, SCHED_FIFO, &priority) == 0;
    std::vector<const desk::Process*> processes = {&hub_.process};
    for (const End* end : {&leaf_, &shower_}) {
      for (const desk::Process* process : {&end->device.broker, &end->device.relay}) processes.push_back(process);
      for (const desk::Process& forwarder : end->forwarders) processes.push_back(&forwarder);
    }
    for (const desk::Process* process : processes) {
      // Of each of its threads.
      for (const auto& task :
           std::filesystem::directory_iterator("/proc/" + std::to_string(process->pid()) + "/task")) {
        all = sched_setscheduler(std::stoi(task.path().filename()), SCHED_FIFO, &priority) == 0 && all;
      }
    }
    return all;
  }

  const std::string packaging_;
  const TemporaryDirectory directory_;
  Loop loop_;
  SiteWires wires_;
  desk::Hub hub_;
  End leaf_, shower_;
  bus::Kept<Loop> planner_;
  std::string awaited_topic_, awaited_text_;
  bool arrived_ = false;
  Loop::Clock::time_point arrival_;
  int last_number_ = 100000;
};

// Of what was measured before nothing is left in it.
void EnterFreshNetwork() {
  std::string problem;
  if (!desk::EnterOwnNetwork(problem)) Fail(problem);
}

std::string Microseconds(double seconds) { return bench::Number(seconds * 1e6, 0); }

void MeasureWay(const std::string& programs, const std::string& packaging, const Effort& effort,
                bench::Report* report) {
  EnterFreshNetwork();
  TwoDevices devices(programs, packaging);
  bench::Series relays;
  std::array<bench::Series, std::size(kBare)> bare;
  int free = 100;
  for (int round = 0; round < effort.rounds; ++round) {
    std::vector<double> by_relays;
    std::array<std::vector<double>, std::size(kBare)> by_bare;
    for (int i = 0; i < effort.events; ++i) {
      devices.Rest();
      by_relays.push_back(devices.ByRelays(free = 100 + (free + 1) % 100));
      if (by_relays.back() <= 0) Fail("a relay lost a message");
      for (size_t way = 0; way < bare.size(); ++way) {
        devices.Rest();
        by_bare[way].push_back(devices.ByForwarders(kBare[way]));
        if (by_bare[way].back() <= 0) Fail("a forwarder lost a message");
      }
    }
    relays.AddRound(by_relays);
    for (size_t way = 0; way < bare.size(); ++way) bare[way].AddRound(by_bare[way]);
  }
  bench::Table table{"From the leaf's bus to the shower's", {"by", "median us", "p99 us", "relays in terms of it"}, {}};
  const auto row = [&](const char* name, const bench::Series& series) {
    table.rows.push_back({name, Microseconds(bench::Median(series.samples)),
                          Microseconds(bench::Quantile(series.samples, 0.99)),
                          bench::Number(bench::Ratio(relays, series))});
  };
  row("two relays", relays);
  for (size_t way = 0; way < bare.size(); ++way) {
    row(kBare[way].name, bare[way]);
    report->Add(bench::Goal{std::string("relays / ") + kBare[way].name, bench::Ratio(relays, bare[way]), 1, false, ""});
  }
  report->Add(std::move(table));
}

void MeasureCost(const std::string& programs, const std::string& packaging, const Effort& effort,
                 bench::Report* report) {
  bench::Table table{"What a relay takes",
                     {"devices that it shows", "changes/s", "share of a core, %", "resident MB", "private MB"},
                     {}};
  const struct {
    trials::SourcesLoad load;
    double share, megabytes;  // wanted
  } kCases[] = {{{10, 0, effort.idle_seconds}, 0.1, 6}, {{10000, 100, effort.load_seconds}, 10, 16}};
  for (const auto& c : kCases) {
    EnterFreshNetwork();
    trials::Stage stage({programs + "/business_server", programs + "/park_relay", packaging});
    trials::SourcesCost cost;
    if (!trials::MeasureSources(stage, c.load, &cost) || stage.breaches() > 0) Fail("the sources are not counted");
    const double resident = cost.resident_kb * 1024 / 1e6, own = cost.private_kb * 1024 / 1e6;
    const std::string sources = std::to_string(c.load.sources);
    table.rows.push_back({sources, std::to_string(c.load.changes_a_second), bench::Number(cost.share * 100, 3),
                          bench::Number(resident, 1), bench::Number(own, 1)});
    report->Add(bench::Goal{"share of a core, " + sources + " devices", cost.share * 100, c.share, false, " %"});
    report->Add(bench::Goal{"resident, " + sources + " devices", resident, c.megabytes, false, " MB"});
  }
  report->Add(std::move(table));
}

}  // namespace

int main(int argc, char** argv) {
  const bool quick = argc == 5 && std::string(argv[4]) == "--quick";
  if (argc != 4 && !quick) {
    fprintf(stderr, "usage: measure_site BIN_DIR SOURCE_DIR OUTPUT_DIR [--quick]\n");
    return 2;
  }
  const std::string programs = std::filesystem::absolute(argv[1]);
  const std::string packaging = std::filesystem::absolute(argv[2]) / "packaging";
  const Effort& effort = quick ? kQuick : kFull;
  try {
    bench::Report report;
    fprintf(stderr, "-- from camera to camera\n");
    MeasureWay(programs, packaging, effort, &report);
    fprintf(stderr, "-- a relay at rest, and one with ten thousand devices\n");
    MeasureCost(programs, packaging, effort, &report);
    std::ofstream(std::string(argv[3]) + "/site.md") << report.Text();
  } catch (const std::exception& error) {
    fprintf(stderr, "measure_site: %s\n", error.what());
    return 1;
  }
  return 0;
}
