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

#include "build_identity/build.h"
#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/parking_result.h"
#include "protocol/stored_documents.h"
#include "rig.h"

namespace {

namespace bs = businessserver;
namespace fs = std::filesystem;
using trials::Holdings;
using trials::Loop;
using trials::Milliseconds;
using trials::Rig;

constexpr Milliseconds kReturnLimit(3000);
constexpr Milliseconds kGivenUp(100);  // a set without an answer by then is not waited for
constexpr int kFreezeMs = 3000;
constexpr int kLeakLimitKb = 512;
constexpr long kSmallDisk = 512 * 1024;

std::mt19937 random_numbers(static_cast<unsigned>(getpid()));
int Random(int from, int to) { return std::uniform_int_distribution<int>(from, to)(random_numbers); }

int breaches = 0;
void Breach(const std::string& what) {
  ++breaches;
  printf("BREACH: %s\n", what.c_str());
}

// A document that is set again and again. Its text follows from its number, so what the store holds is one of the
// texts that were sent or it is torn.
struct Document {
  const char* command;
  const bs::StoredDocument* stored;
  std::string content;  // with # for a number from 2 to 7, none of them a default
  int sent = 0;
  int acknowledged = 0;  // highest number

  std::string Body(int number) const {
    const std::string filling(static_cast<size_t>(number * 37 % 1200), static_cast<char>('a' + number % 26));
    std::string text = content;
    std::replace(text.begin(), text.end(), '#', static_cast<char>('2' + number % 6));
    return "{\"n\":" + std::to_string(number) + ",\"filling\":\"" + filling + "\"," + text + "}";
  }
  std::string Text(int number) const {
    Json::Value body;
    bs::ParseJson(Body(number), body);
    return bs::StyledText(body);
  }
};

class Trial {
 public:
  explicit Trial(Rig& rig) : rig_(rig) {
    rig_.loop.Every(Milliseconds(1), [this] { Traffic(); });
  }

  void RunFor(int milliseconds) { rig_.loop.RunFor(Milliseconds(milliseconds)); }

  // From now until a set that is sent from now on is acknowledged, in ms.
  int AwaitReturn(const std::string& after) {
    const auto start = Loop::Clock::now();
    const int before = begun_;
    if (!rig_.loop.RunUntil([&] { return newest_acknowledged_ > before; }, kReturnLimit)) {
      Breach(after + ": no set is acknowledged within 3 s of the return");
    }
    return static_cast<int>(std::chrono::duration_cast<Milliseconds>(Loop::Clock::now() - start).count());
  }

  void CheckDocuments(const std::string& after) {
    for (const Document& document : documents_) {
      const std::string name = after + ": " + document.stored->key;
      std::string text;
      Json::Value stored;
      if (!rig_.loop.RunUntil([&] { return rig_.store_client.Get(document.stored->key, text); }, kReturnLimit)) {
        Breach(name + " cannot be read");
        continue;
      }
      const int number = bs::ParseJson(text, stored) ? stored["n"].asInt() : -1;
      if (text != document.Text(number)) Breach(name + " is none of the texts that were sent: " + text);
      if (number < document.acknowledged) {
        Breach(name + " has number " + std::to_string(number) + ", acknowledged was " +
               std::to_string(document.acknowledged));
      }
    }
  }

  void Pause() {
    paused_ = true;
    RunFor(50);  // until no set is on its way
  }

  // While paused: the daemon goes by what its store says, not by a default that it fell back to. Ends the pause.
  void CheckApplied(const std::string& after) {
    std::string reply, text;
    Json::Value shown, stored;
    rig_.Await(bs::kGetDeviceFrameStatus, "0", kReturnLimit, &reply);
    rig_.loop.RunUntil([&] { return rig_.store_client.Get(bs::kBusLedColor.key, text); }, kReturnLimit);
    bs::ParseJson(reply, shown);
    bs::ParseJson(text, stored);
    paused_ = false;
    if (shown[bs::kBody][bs::kLedColor] != stored[bs::kParkingledcolorcfg][bs::kParkingfreeledcolor]) {
      Breach(after + ": the daemon shows " + bs::StyledText(shown) + " and the store says " + text);
    }
  }

  // Longest time in ms that the daemon takes for an answer that needs no store, while the given time passes.
  int LongestAnswer(int milliseconds) {
    int longest = 0;
    const auto end = Loop::Clock::now() + Milliseconds(milliseconds);
    while (Loop::Clock::now() < end) {
      const auto start = Loop::Clock::now();
      bool answered = false;
      rig_.Send(bs::kGetNetStatus, "0", [&](int, const std::string&) { answered = true; });
      rig_.loop.RunUntil([&] { return answered; }, kReturnLimit);
      if (!answered) Breach("the daemon does not answer while the store stands still");
      const auto took = std::chrono::duration_cast<Milliseconds>(Loop::Clock::now() - start);
      longest = std::max(longest, static_cast<int>(took.count()));
      RunFor(20);
    }
    return longest;
  }

  int acknowledged = 0, refused = 0, results = 0;

 private:
  // One set at a time, each document in its turn; a result every few milliseconds.
  void Traffic() {
    const auto now = Loop::Clock::now();
    if (++ticks_ % 4 == 0 && rig_.Publish(bs::kAvsSimulatorTrigger, Result())) ++results;
    if (paused_ || (waiting_ && now - sent_at_ < kGivenUp)) return;
    const size_t index = static_cast<size_t>(begun_) % documents_.size();
    Document& document = documents_[index];
    const int number = document.sent + 1;
    const int turn = begun_ + 1;
    waiting_ = rig_.Send(document.command, document.Body(number), [this, index, number, turn](int state, auto&) {
      waiting_ = waiting_ && turn != begun_;
      if (state != bs::kAllDone.state) {
        ++refused;
        return;
      }
      ++acknowledged;
      documents_[index].acknowledged = std::max(documents_[index].acknowledged, number);
      newest_acknowledged_ = std::max(newest_acknowledged_, turn);
    });
    if (!waiting_) return;
    document.sent = number;
    begun_ = turn;
    sent_at_ = now;
  }

  std::string Result() const {
    bs::LX_Parking_Result_Param record = {};
    record.spaces[0].valid = record.spaces[0].second_flag = 1;
    record.spaces[0].space_status = ticks_ / 4 % 2;
    return std::string(reinterpret_cast<const char*>(&record), sizeof record);
  }

  Rig& rig_;
  std::vector<Document> documents_ = {
      {bs::kSetParkingReserveCfg, &bs::kParkingReserve, "\"reservecfg\":{\"reservenum\":#}"},
      {bs::kSetEncCfg, &bs::kEncCfg, "\"level\":#,\"data\":\"cTdXbTRadDJQ\",\"data_len\":9"},
      {bs::kSetTtyioCfg, &bs::kDeviceTtyio,
       "\"ttyionum\":2,\"baudrate\":115200,\"checkbit\":0,\"databit\":8,\"stopbit\":1"},
      {bs::kSetDevPos, &bs::kDevPos, "\"pos\":#"},
      {bs::kSetRs485proCfg, &bs::kRs485pro, "\"pro_cfg\":[{\"header\":\"BB8#\"},{\"license\":1},{\"end\":\"33\"}]"},
      {bs::kSetParkingColorCfg, &bs::kBusLedColor,
       "\"parkingledcolorcfg\":{\"parkingfreeledcolor\":#,\"parkingoccupyledcolor\":#}"},
  };
  unsigned ticks_ = 0;
  bool paused_ = false;
  bool waiting_ = false;
  Loop::Clock::time_point sent_at_;
  int begun_ = 0;  // sets so far
  int newest_acknowledged_ = 0;
};

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
void Kill(Trial& trial, const std::vector<desk::Process*>& victims, int rounds) {
  Row row{"kill -9"};
  for (const desk::Process* victim : victims) row.what += " " + victim->name();
  for (int round = 0; round < rounds; ++round) {
    trial.RunFor(Random(5, 120));
    const bool paused = round % 4 == 0;
    if (paused) trial.Pause();
    for (desk::Process* victim : victims) victim->Kill();
    if (paused) trial.CheckApplied(row.what);
    const int back = trial.AwaitReturn(row.what);
    if (!paused) row.returns.push_back(back);
    trial.CheckDocuments(row.what);
  }
  Print(row);
}

void Freeze(Trial& trial, desk::Process& process) {
  trial.RunFor(100);
  process.Freeze();
  Row row{process.name() + " stands still for 3 s"};
  if (process.name() == "store") {
    row.what += ", answers in " + std::to_string(trial.LongestAnswer(kFreezeMs)) + " ms";
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
void TearFile(Rig& rig, Trial& trial, int rounds) {
  const std::string write = "*4\r\n$4\r\nHSET\r\n$4\r\nkvdb\r\n$19\r\nbus_led_color_value\r\n$9\r\n{\"n\":9999}\r\n";
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
void FillDisk(Rig& rig, Trial& trial) {
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
  std::string daemon = BINARY_DIRECTORY "/business_server";
  std::string packaging = PACKAGING_DIRECTORY;
  CLI::App app("Kills, freezes and starves the device's programs under load");
  app.add_option("--rounds", rounds, "kills of each program");
  app.add_option("--daemon", daemon, "the daemon's program");
  app.add_option("--packaging", packaging, "where mosquitto.conf and redis.conf are");
  app.set_version_flag("--version", build::Line("faults"));
  CLI11_PARSE(app, argc, argv);

  trials::EnterQuietNetwork();
  Rig rig(daemon, packaging);
  if (!rig.Start()) return 1;
  Trial trial(rig);
  trial.AwaitReturn("start");
  trial.RunFor(500);
  printf("%-44s %6s %10s %10s\n", "", "timed", "back (ms)", "at most");

  const Holdings before = rig.OfDaemon();
  for (desk::Process* victim : {&rig.device.broker, &rig.device.store}) Kill(trial, {victim}, rounds);
  for (desk::Process* victim : {&rig.device.broker, &rig.device.store}) Freeze(trial, *victim);
  TearFile(rig, trial, std::max(rounds / 10, 1));
  FillDisk(rig, trial);
  trial.RunFor(500);
  const Holdings after = rig.OfDaemon();
  Kill(trial, {&rig.device.daemon}, rounds);
  rig.device.store.KeepRunning(Milliseconds(500));  // the daemon is the first to be back
  Kill(trial, {&rig.device.broker, &rig.device.store, &rig.device.daemon}, std::max(rounds / 10, 2));

  for (const auto& [name, times] : rig.ended_by_itself) {
    if (times > 0) Breach("the " + name + " ended by itself " + std::to_string(times) + " times");
  }
  printf("%d sets acknowledged, %d refused, %d results\n", trial.acknowledged, trial.refused, trial.results);
  printf("the daemon that saw all but its own deaths: %d -> %d descriptors, %d -> %d kB\n", before.descriptors,
         after.descriptors, before.resident_kb, after.resident_kb);
  if (after.descriptors != before.descriptors) Breach("descriptors leak");
  if (after.resident_kb > before.resident_kb + kLeakLimitKb) Breach("memory leaks");
  printf("%d breaches\n", breaches);
  return breaches == 0 ? 0 : 1;
}
