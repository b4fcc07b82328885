#include "site_sources.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/site_names.h"

namespace trials {
namespace {

namespace bs = businessserver;

constexpr int kSecondsToRepeat = 25;
constexpr Milliseconds kSendingTick(10);
constexpr Milliseconds kLimit(30000);
constexpr uint32_t kExpirySeconds = 90;

double CpuSeconds(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/schedstat");
  double nanoseconds = 0;
  file >> nanoseconds;
  return nanoseconds / 1e9;
}

void ReadMemory(pid_t pid, SourcesCost* cost) {
  std::ifstream rollup("/proc/" + std::to_string(pid) + "/smaps_rollup");
  for (std::string line; std::getline(rollup, line);) {
    sscanf(line.c_str(), "Rss: %d", &cost->resident_kb);
    sscanf(line.c_str(), "Private_Dirty: %d", &cost->private_kb);
  }
}

// The made-up devices, three spaces each, all in one zone.
class Sources {
 public:
  Sources(Stage& stage, const SourcesLoad& load)
      : stage_(stage),
        changes_a_second_(load.changes_a_second),
        free_(static_cast<size_t>(load.sources), 3),
        hub_(stage.loop, Options(), {[this] { SayAll(); }}) {
    hub_.Start();
  }

  bool up() const { return hub_.up(); }
  int Sum() const {
    int sum = 0;
    for (const int free : free_) sum += free;
    return sum;
  }

  // The changes and repetitions that are due after so many milliseconds.
  void Go(Milliseconds passed) {
    const double seconds = static_cast<double>(passed.count()) / 1000;
    for (changes_ += seconds * changes_a_second_; changes_ >= 1; --changes_) {
      const auto index = static_cast<size_t>(stage_.Random(0, static_cast<int>(free_.size()) - 1));
      free_[index] = (free_[index] + 1) % 4;
      Say(index);
    }
    repeats_ += seconds * static_cast<double>(free_.size()) / kSecondsToRepeat;
    for (; repeats_ >= 1; --repeats_) Say(next_++ % free_.size());
  }

 private:
  static bus::Options Options() {
    bus::Options options;
    options.address.host = desk::SiteWires::Address(0);
    options.address.port = desk::kHubPort;
    return options;
  }

  void SayAll() {
    for (size_t i = 0; i < free_.size(); ++i) Say(i);
  }

  void Say(size_t index) {
    bus::Message message{bs::CountsTopic("trial", "S-" + std::to_string(index), "L1/S"),
                         "{\"spaces\":3,\"free\":" + std::to_string(free_[index]) + "}"};
    message.retained = true;
    message.expiry_s = kExpirySeconds;
    hub_.Publish(message);
  }

  Stage& stage_;
  const int changes_a_second_;
  std::vector<int> free_;
  bus::Kept<Loop> hub_;
  double changes_ = 0, repeats_ = 0;
  size_t next_ = 0;
};

}  // namespace

bool MeasureSources(Stage& stage, const SourcesLoad& load, SourcesCost* cost) {
  if (!stage.Start(1)) return false;
  Camera& camera = *stage.cameras.front();
  Sources made_up(stage, load);
  int heard = -1;
  camera.bus.OnMessage([&](const desk::BusMessage& message) {
    Json::Value push;
    if (message.topic != bs::kBusNetPush || !bs::ParseJson(message.payload, push)) return;
    if (push[bs::kPos].asUInt() == bs::kLeft) heard = push[bs::kFree].asInt();
  });
  camera.plan.zone = "L2/A";
  camera.plan.shows[bs::kLeft] = {"L1/S"};
  camera.plan.shows[bs::kRight] = {};
  stage.HandOut(camera);
  const auto start = Loop::Clock::now();
  const auto seconds = [&] { return std::chrono::duration<double>(Loop::Clock::now() - start).count(); };
  const auto true_within = [&](Milliseconds limit) {
    return stage.loop.RunUntil([&] { return heard == made_up.Sum(); }, limit);
  };
  if (!true_within(kLimit)) stage.Breach("not all sources are counted: " + std::to_string(heard));
  cost->counted_after = seconds();

  const pid_t relay = camera.device.relay.pid();
  const double cpu = CpuSeconds(relay), from = seconds();
  auto last = Loop::Clock::now();
  const uint64_t going = stage.loop.Every(kSendingTick, [&] {
    const auto now = Loop::Clock::now();
    made_up.Go(std::chrono::duration_cast<Milliseconds>(now - last));
    last = now;
  });
  stage.loop.RunFor(Milliseconds(load.seconds * 1000));
  cost->share = (CpuSeconds(relay) - cpu) / (seconds() - from);
  stage.loop.Cancel(going);
  if (!true_within(kLimit)) {
    stage.Breach("shown " + std::to_string(heard) + ", the truth is " + std::to_string(made_up.Sum()));
  }
  ReadMemory(relay, cost);
  return true;
}

}  // namespace trials
