// What the daemon takes while nothing happens, how soon it answers, and what a long run leaves behind.
#include <unistd.h>

#include <algorithm>

#include "flow.h"
#include "measurements.h"
#include "protocol/names.h"
#include "statistics.h"

namespace bench {

namespace bs = businessserver;

namespace {

std::string Megabytes(uint64_t bytes) { return Number(static_cast<double>(bytes) / (1024 * 1024)); }

void MeasureIdle(Device& device, const Effort& effort, Report& report) {
  Table table{"Idle", {"log", "share of a core, %", "wake-ups/s", "resident MiB", "proportional MiB"}, {}};
  for (const LogMode& mode : LogModes()) {
    device.StartDaemon(mode);
    const Process& daemon = device.daemon();
    sleep(1);
    const double cpu = daemon.CpuSeconds(), begin = Now();
    const uint64_t wake_ups = daemon.WakeUps();
    usleep(static_cast<useconds_t>(effort.idle_seconds * 1e6));
    const double seconds = Now() - begin;
    const double share = 100 * (daemon.CpuSeconds() - cpu) / seconds;
    const double rate = static_cast<double>(daemon.WakeUps() - wake_ups) / seconds;
    table.rows.push_back({mode.name, Number(share, 3), Number(rate, 0), Megabytes(daemon.ResidentBytes()),
                          Megabytes(daemon.ProportionalBytes())});
    const std::string at = std::string(", ") + mode.name;
    report.Add(Goal{"idle share of a core" + at, share, 1, false, " %"});
    report.Add(Goal{"resident" + at, static_cast<double>(daemon.ResidentBytes()) / (1024 * 1024), 8, false, " MiB"});
  }
  report.Add(std::move(table));
}

void MeasureStart(Device& device, const Effort& effort, Report& report) {
  std::vector<double> fresh, filled;
  for (int i = 0; i < effort.starts; ++i) {
    device.StopDaemon();
    device.EmptyStore();
    fresh.push_back(device.StartDaemon(LogModes()[0]));
    filled.push_back(device.StartDaemon(LogModes()[0]));
  }
  Table table{"From start to first answer", {"store", "median ms", "slowest ms"}, {}};
  for (const auto& [name, times] : {std::pair("fresh", fresh), std::pair("filled", filled)}) {
    table.rows.push_back({name, Number(Median(times) * 1e3, 1), Number(Quantile(times, 1) * 1e3, 1)});
  }
  report.Add(std::move(table));
}

}  // namespace

void RunResults(Device& device, long long count) {
  const bs::LX_Parking_Result_Param records[] = {ResultRecord(false), ResultRecord(true)};
  RunEvents(device, count, bs::kBusSimulatorTrigger, "",
            [&](unsigned number) { device.bus().Publish(bs::kAvsSimulatorTrigger, Bytes(records[number % 2])); });
}

void MeasureResources(Device& device, const Effort& effort, Report& report) {
  MeasureIdle(device, effort, report);
  MeasureStart(device, effort, report);
  device.StopDaemon();
}

void MeasureLongRun(Device& device, const Effort& effort, Report& report) {
  constexpr int kSections = 10;
  device.StartDaemon(LevelOneToNowhere());
  Table table{"Long run", {"results", "results/s", "processor us/result", "resident MiB", "descriptors"}, {}};
  const Process& daemon = device.daemon();
  const auto add_row = [&](long long results, const std::string& rate, const std::string& cost) {
    table.rows.push_back(
        {std::to_string(results), rate, cost, Megabytes(daemon.ResidentBytes()), std::to_string(daemon.Descriptors())});
  };
  add_row(0, "", "");
  const long long section = std::max<long long>(effort.long_run / kSections, 1);
  for (int i = 1; i <= kSections; ++i) {
    const double begin = Now(), cpu = daemon.CpuSeconds();
    RunResults(device, section);
    const double count = static_cast<double>(section);
    add_row(i * section, Number(count / (Now() - begin), 0), Number((daemon.CpuSeconds() - cpu) / count * 1e6, 1));
  }
  report.Add(std::move(table));
  device.StopDaemon();
}

}  // namespace bench
