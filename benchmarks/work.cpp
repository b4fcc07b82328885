// Instructions and heap allocations by event: the daemon runs under callgrind, which is told where each kind of event
// begins and ends. These counts are the same on every run and every machine of a kind.
#include <unistd.h>

#include <filesystem>

#include "callgrind_profile.h"
#include "flow.h"
#include "measurements.h"
#include "protocol/names.h"

namespace bench {

namespace bs = businessserver;

namespace {

constexpr int kIdleSeconds = 5;
constexpr size_t kNamedCosts = 6;

class Work {
 public:
  Work(Device& device, const Effort& effort) : device_(device), effort_(effort) {}

  void Run(const LogMode& mode) {
    const std::string profile = device_.directory() + "/callgrind.out";
    device_.StartDaemon(mode, {"valgrind", "--tool=callgrind", "--compress-strings=no", "--compress-pos=no",
                               "--callgrind-out-file=" + profile});
    // The first of each kind is not like the others.
    RunAll();
    idle_second_ = 0;
    const CallgrindProfile idle = Profile([] { sleep(kIdleSeconds); });
    AddRow(mode, "idle second", kIdleSeconds, idle);
    idle_second_ = idle.total / seconds_;
    const int count = effort_.profiled_events;
    AddRow(mode, "live-state request", count, Profile([&] { Ask(kLiveRequest); }));
    const CallgrindProfile reading = Profile([&] { Ask(kReadingRequest); });
    AddRow(mode, "reading request", count, reading);
    AddLargest(mode, "reading request", reading);
    AddRow(mode, "storing request", count, Profile([&] { Ask(kStoringRequest); }));
    const CallgrindProfile results = Profile([&] { RunResults(device_, count); });
    AddRow(mode, "result, three frames", count, results);
    AddLargest(mode, "result", results);
    table_.rows.push_back({std::string("frame, ") + mode.name, Number(results.PerCall("GetDevRs485ProData"), 0), ""});
    device_.StopDaemon();
  }

  void Fill(Report& report) {
    report.Add(std::move(table_));
    report.Add(std::move(largest_));
  }

 private:
  void Ask(const char* request) {
    for (int i = 0; i < effort_.profiled_events; ++i) device_.bus().Ask(bs::kBusRequestMessage, request);
  }
  void RunAll() {
    for (const char* request : {kLiveRequest, kReadingRequest, kStoringRequest}) {
      device_.bus().Ask(bs::kBusRequestMessage, request);
    }
    RunResults(device_, 2);
  }

  // Counts from here to the end of what is run. The profiler numbers its files.
  template <typename Events>
  CallgrindProfile Profile(Events events) {
    const std::string pid = std::to_string(device_.daemon().pid());
    OutputOf("callgrind_control --zero " + pid + " 2>&1");
    const double begin = Now();
    events();
    seconds_ = Now() - begin;
    OutputOf("callgrind_control --dump " + pid + " 2>&1");
    const std::string path = device_.directory() + "/callgrind.out." + std::to_string(++dumps_[pid]);
    CallgrindProfile profile = CallgrindProfile::Read(path);
    if (profile.total == 0) throw std::runtime_error("the profiler wrote nothing to " + path);
    std::filesystem::remove(path);
    return profile;
  }

  // Without what the time that it took would have cost anyhow: under the profiler that is not little.
  void AddRow(const LogMode& mode, const std::string& event, int count, const CallgrindProfile& profile) {
    const double instructions = profile.total - idle_second_ * seconds_;
    double allocations = 0;
    for (const char* name : {"malloc", "calloc", "realloc"}) allocations += profile.Calls(name);
    table_.rows.push_back({event + ", " + mode.name, Number(instructions / count, 0), Number(allocations / count, 1)});
  }

  void AddLargest(const LogMode& mode, const std::string& event, const CallgrindProfile& profile) {
    for (const auto& [name, function] : profile.Largest(kNamedCosts)) {
      largest_.rows.push_back(
          {event + ", " + mode.name, "`" + name.substr(0, 60) + "`", Number(100 * function.own / profile.total, 1)});
    }
  }

  Device& device_;
  const Effort effort_;
  double idle_second_ = 0;  // instructions
  double seconds_ = 0;      // that the last profile took
  std::map<std::string, int> dumps_;
  Table table_{"Work", {"event", "instructions", "heap allocations"}, {}};
  Table largest_{"Largest single costs", {"event", "function", "% of the instructions"}, {}};
};

}  // namespace

void MeasureWork(Device& device, const Effort& effort, Report& report) {
  Work work(device, effort);
  for (const LogMode& mode : LogModes()) {
    if (!mode.to_reader) work.Run(mode);  // to a reader, the same instructions
  }
  work.Fill(report);
}

}  // namespace bench
