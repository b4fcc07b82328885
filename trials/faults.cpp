// What the device must survive: its programs killed at random moments under a stream of sets and results, broker and
// store frozen, a torn append-only file, a full disk. Prints a table and every breach of a promise; exits nonzero when
// there was one.
//   faults [--rounds N] [--daemon PROGRAM] [--packaging DIRECTORY]
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/parking_result.h"
#include "protocol/stored_documents.h"
#include "traffic.h"

namespace {

namespace bs = businessserver;
namespace fs = std::filesystem;
using trials::Breach;
using trials::Holdings;
using trials::Loop;
using trials::Milliseconds;
using trials::Rig;
using trials::Traffic;

constexpr int kFreezeMs = 3000;
constexpr int kLeakLimitKb = 512;
constexpr long kSmallDisk = 512 * 1024;

std::mt19937 random_numbers(static_cast<unsigned>(getpid()));
int Random(int from, int to) { return std::uniform_int_distribution<int>(from, to)(random_numbers); }

struct Row {
  std::string what;
  std::vector<int> returns = {};  // ms
};

void Print(const Row& row) {
  printf("%-44s %6zu %10s %10s\n", row.what.c_str(), row.returns.size(), trials::Percentile(row.returns, 50).c_str(),
         trials::Percentile(row.returns, 100).c_str());
  fflush(stdout);
}

// The supervisor starts a killed program again at the next turn of the loop.
void Kill(Traffic& trial, const std::vector<desk::Process*>& victims, int rounds) {
  Row row{"kill -9"};
  for (const desk::Process* victim : victims) row.what += " " + victim->name();
  for (int round = 0; round < rounds; ++round) {
    trial.RunFor(Random(5, 120));
    const bool paused = round % 4 == 0;
    if (paused) trial.Settle();
    for (desk::Process* victim : victims) victim->Kill();
    if (paused) trial.CheckApplied(row.what);
    trial.Go(Traffic::Pace::kSteady);
    const int back = trial.AwaitReturn(row.what);
    if (!paused) row.returns.push_back(back);
    trial.CheckDocuments(row.what);
  }
  Print(row);
}

// Longest time in ms that the daemon takes for an answer that needs no store, while the given time passes.
int LongestAnswer(Rig& rig, int milliseconds) {
  int longest = 0;
  const auto end = Loop::Clock::now() + Milliseconds(milliseconds);
  while (Loop::Clock::now() < end) {
    const Milliseconds took = rig.Await(bs::kGetNetStatus, "0", trials::kReturnLimit);
    if (took >= trials::kReturnLimit) Breach("the daemon does not answer while the store stands still");
    longest = std::max(longest, static_cast<int>(took.count()));
    rig.loop.RunFor(Milliseconds(20));
  }
  return longest;
}

void Freeze(Rig& rig, Traffic& trial, desk::Process& process) {
  trial.RunFor(100);
  process.Freeze();
  Row row{process.name() + " stands still for 3 s"};
  if (process.name() == "store") {
    row.what += ", answers in " + std::to_string(LongestAnswer(rig, kFreezeMs)) + " ms";
  } else {
    trial.RunFor(kFreezeMs);
  }
  process.Thaw();
  row.returns.push_back(trial.AwaitReturn(row.what));
  trial.CheckDocuments(row.what);
  Print(row);
}

fs::path AppendOnlyFile(const Rig& rig) {
  for (const auto& entry : fs::recursive_directory_iterator(rig.device.StoreDirectory())) {
    if (entry.path().string().find(".incr.aof") != std::string::npos) return entry.path();
  }
  return {};
}

// A power cut in the middle of a write: the file ends in a part of a set that nobody was told of.
void TearFile(Rig& rig, Traffic& trial, int rounds) {
  const std::string write = "*4\r\n$4\r\nHSET\r\n$4\r\nkvdb\r\n$19\r\nbus_led_color_value\r\n$10\r\n{\"n\":9999}\r\n";
  Row row{"torn append-only file"};
  for (int round = 0; round < rounds; ++round) {
    trial.RunFor(50);
    rig.device.store.Kill();
    std::ofstream(AppendOnlyFile(rig), std::ios::app | std::ios::binary)
        << write.substr(0, static_cast<size_t>(Random(1, static_cast<int>(write.size()) - 1)));
    row.returns.push_back(trial.AwaitReturn(row.what));
    trial.CheckDocuments(row.what);
  }
  Print(row);
}

// The append-only file cannot grow: on a small disk of its own where this program may mount one, else by the
// process's own limit. The store gives up at every write and is started again, until there is room.
void FillDisk(Rig& rig, Traffic& trial) {
  Row row{"disk full"};
  trial.RunFor(100);
  const auto grown = [&] { return fs::file_size(AppendOnlyFile(rig)); };
  const int refused_before = trial.refused;
  const int ended_before = rig.ended_by_itself["store"];
  const rlimit limit = {grown() + kSmallDisk / 8, RLIM_INFINITY};
  const auto limit_store = [&] { prlimit(rig.device.store.pid(), RLIMIT_FSIZE, &limit, nullptr); };
  const uint64_t limiter = rig.loop.Every(Milliseconds(1), limit_store);
  if (!rig.loop.RunUntil([&] { return rig.ended_by_itself["store"] >= ended_before + 3; }, Milliseconds(20000))) {
    Breach("the store took writes with a full disk");
  }
  rig.loop.Cancel(limiter);
  rig.device.store.Kill();  // the limit goes with it
  row.returns.push_back(trial.AwaitReturn(row.what));
  trial.CheckDocuments(row.what);
  if (trial.refused == refused_before) Breach("no set was refused while the disk was full");
  rig.ended_by_itself["store"] = ended_before;
  Print(row);
}

}  // namespace

int main(int argc, char** argv) {
  int rounds = 200;
  trials::Programs programs;
  CLI::App app("Kills, freezes and starves the device's programs under load");
  app.add_option("--rounds", rounds, "kills of each program");
  programs.AddOptions(app, "faults");
  CLI11_PARSE(app, argc, argv);

  trials::EnterQuietNetwork();
  Rig rig(programs);
  if (!rig.Start()) return 1;
  Traffic trial(rig);
  trial.AwaitReturn("start");
  trial.RunFor(500);
  printf("%-44s %6s %10s %10s\n", "", "timed", "back (ms)", "at most");

  const Holdings before = rig.OfDaemon();
  for (desk::Process* victim : {&rig.device.broker, &rig.device.store}) Kill(trial, {victim}, rounds);
  for (desk::Process* victim : {&rig.device.broker, &rig.device.store}) Freeze(rig, trial, *victim);
  TearFile(rig, trial, std::max(rounds / 10, 1));
  FillDisk(rig, trial);
  trial.RunFor(500);
  const Holdings after = rig.OfDaemon();
  Kill(trial, {&rig.device.daemon}, rounds);
  rig.device.store.KeepRunning(Milliseconds(500));  // the daemon is the first to be back
  Kill(trial, {&rig.device.broker, &rig.device.store, &rig.device.daemon}, std::max(rounds / 10, 2));

  if (rig.EndedByThemselves() > 0) Breach("programs ended by themselves");
  printf("%d sets acknowledged, %d refused, %d results\n", trial.acknowledged, trial.refused, trial.results);
  printf("the daemon that saw all but its own deaths: %d -> %d descriptors, %d -> %d kB\n", before.descriptors,
         after.descriptors, before.resident_kb, after.resident_kb);
  if (after.descriptors != before.descriptors) Breach("descriptors leak");
  if (after.resident_kb > before.resident_kb + kLeakLimitKb) Breach("memory leaks");
  printf("%d breaches\n", trials::Breaches());
  return trials::Breaches() == 0 ? 0 : 1;
}
