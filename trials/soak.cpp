// A day at high speed: a million results and ten thousand commands, neighbours' pushes between them, with the
// daemon's memory and descriptors in a table over time. Then counts from more senders than any car park has, and a
// message that nobody should send. Exits nonzero when something grows or an answer is missing.
//   soak [--results N] [--commands N] [--devices N] [--seconds S] [--daemon PROGRAM] [--packaging DIRECTORY]
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "netpush/netpush.h"
#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/parking_result.h"
#include "rig.h"
#include "workers.h"

namespace {

namespace bs = businessserver;
using trials::Holdings;
using trials::Loop;
using trials::Milliseconds;
using trials::Rig;

constexpr int kBurst = 2000;  // results on their way at a time
constexpr int kRows = 24;     // an hour each
constexpr int kLeakLimitKb = 256;
constexpr int kFloodLimitKb = 4096;
constexpr Milliseconds kBurstLimit(120000);

struct Command {
  const char* name;
  const char* body;
};
constexpr Command kCommands[] = {
    {bs::kGetTtyioCfg, "0"},
    {bs::kSetParkingReserveCfg, R"({"reservecfg":{"reservenum":0,"reserve":[]}})"},
    {bs::kGetNetStatus, "0"},
    {bs::kSetDevPos, R"({"pos":0})"},
    {bs::kGetLatestIvsresult, "0"},
    {bs::kSetParkingColorCfg, R"({"parkingledcolorcfg":{"parkingfreeledcolor":1,"parkingoccupyledcolor":0}})"},
    {bs::kQuaryControledLog, "0"},
    {bs::kGetRs485proCfg, "0"},
};

// Cars come and go on three spaces, each with a plate of its own; most results are about one of them.
std::string Result(int number) {
  bs::LX_Parking_Result_Param record = {};
  for (size_t i = 0; i < bs::kSpaces; ++i) {
    auto& space = record.spaces[i];
    snprintf(space.plate, sizeof space.plate, "\xBE\xA9%c%05d", 'A' + static_cast<char>(i), number % 100000);
    snprintf(space.space_name, sizeof space.space_name, "A-%zu", i);
    space.valid = number % 10 == 0 || number % 3 == static_cast<int>(i) ? 1 : 0;
    space.second_flag = 1;
    space.space_status = number >> i & 1;
    space.time_stamp = static_cast<uint32_t>(number);
  }
  return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

std::string Push(int number) {
  return "{\"s_addr\":" + std::to_string(0x0200A8C0u + static_cast<unsigned>(number % 200) * 0x1000000u) +
         ",\"pos\":" + std::to_string(1 + number % 3) +
         ",\"totle\":3,\"free\":1,\"cm_dev\":[{\"ip\":" + std::to_string(number % 50 + 1) + ",\"tn\":1,\"fn\":1}]}";
}

// Counts from more senders than the daemon lists. Its memory stays bounded, and it still counts itself.
bool SurvivesFlood(Rig& rig) {
  constexpr unsigned kDevices = bs::NetPush::kMaxDevices;
  const Holdings before = rig.OfDaemon();
  for (unsigned sender = 0; sender < kDevices + kDevices / 4; ++sender) {
    rig.Publish(bs::kBusNetPush,
                "{\"s_addr\":" + std::to_string(0x0A000001u + sender * 256) + ",\"pos\":1,\"totle\":1,\"free\":1}");
    if (sender % 512 == 0) rig.Await(bs::kGetNetStatus, "0", kBurstLimit);
  }
  rig.Publish(bs::kAvsParkRectChange, Result(0));
  rig.Publish(bs::kBusNetPush, std::string(64 << 20, ' '));
  std::string reply;
  rig.Await(bs::kGetNetStatus, "0", kBurstLimit, &reply);
  Json::Value document;
  bs::ParseJson(reply, document);
  const unsigned left = document[bs::kBody]["l_totles"].asUInt();
  const unsigned own = document[bs::kBody]["n_totles"].asUInt();
  const int grown = rig.OfDaemon().resident_kb - before.resident_kb;
  printf("%u senders: %u counted, %u own spaces, %d kB more\n", kDevices + kDevices / 4, left, own, grown);
  return left > 0 && left <= kDevices && own == bs::kSpaces && grown <= kFloodLimitKb;
}

// Of one device; the first one's table is shown.
int Soak(const trials::Programs& programs, int results, int commands, int seconds, bool shows,
         const trials::Notes& notes) {
  trials::EnterQuietNetwork();
  Rig rig(programs);
  if (!rig.Start()) return 1;
  rig.Await(bs::kSetTtyioCfg, R"({"ttyionum":2,"baudrate":115200,"checkbit":0,"databit":8,"stopbit":1})", kBurstLimit);

  const auto start = Loop::Clock::now();
  const auto end = start + std::chrono::seconds(seconds);
  int sent = 0, asked = 0, answered = 0;
  Holdings first, last;
  if (shows) printf("%8s %10s %10s %12s %12s\n", "seconds", "results", "commands", "memory (kB)", "descriptors");
  const auto print = [&] {
    last = rig.OfDaemon();
    const auto passed = std::chrono::duration_cast<std::chrono::seconds>(Loop::Clock::now() - start).count();
    if (!shows) return;
    printf("%8lld %10d %10d %12d %12d\n", static_cast<long long>(passed), sent, answered, last.resident_kb,
           last.descriptors);
    fflush(stdout);
  };
  int printed = 0;
  while (sent < results && (seconds == 0 || Loop::Clock::now() < end)) {
    for (int i = 0; i < kBurst && sent < results; ++i, ++sent) {
      rig.Publish(bs::kAvsSimulatorTrigger, Result(sent));
      if (sent % 100 == 0) rig.Publish(bs::kBusNetPush, Push(sent / 100));
      if (static_cast<int64_t>(asked) * results > static_cast<int64_t>(sent) * commands) continue;
      const Command& command = kCommands[static_cast<size_t>(asked++) % std::size(kCommands)];
      rig.Send(command.name, command.body, [&](int, const std::string&) { ++answered; });
    }
    const auto all_back = [&] {
      return rig.heard[bs::kBusSimulatorTrigger] == static_cast<uint64_t>(sent) && answered == asked;
    };
    if (!rig.loop.RunUntil(all_back, kBurstLimit)) {
      printf("lost: %llu of %d results came back, %d of %d commands were answered\n",
             static_cast<unsigned long long>(rig.heard[bs::kBusSimulatorTrigger]), sent, answered, asked);
      return 1;
    }
    const double played = static_cast<double>(sent) / results;
    const double timed =
        seconds > 0 ? std::chrono::duration<double>(Loop::Clock::now() - start).count() / seconds : played;
    if (std::max(played, timed) * kRows < printed + 1) continue;
    print();
    if (++printed == 2) first = last;  // buffers have grown to their size by then
  }
  const bool flat = last.descriptors == first.descriptors && last.resident_kb <= first.resident_kb + kLeakLimitKb;
  printf("%s; the daemon ended by itself %d times\n", flat ? "flat" : "GROWING", rig.ended_by_itself["daemon"]);
  const bool bounded = SurvivesFlood(rig);
  notes.Add("results", sent);
  notes.Add("commands", answered);
  notes.Add("grown", last.resident_kb - first.resident_kb);
  return flat && bounded && rig.ended_by_itself["daemon"] == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  int results = 1000000, commands = -1, devices = 1, seconds = 0;
  trials::Programs programs;
  CLI::App app("A day at high speed");
  app.add_option("--results", results, "recognition results, of all devices");
  app.add_option("--commands", commands, "configuration commands; one for each 100 results when not given");
  app.add_option("--devices", devices, "side by side")->check(CLI::Range(1, 100));
  app.add_option("--seconds", seconds, "at most; 0 for as long as it takes");
  programs.AddOptions(app, "soak");
  CLI11_PARSE(app, argc, argv);
  if (commands < 0) commands = results / 100;

  const auto start = Loop::Clock::now();
  const trials::Tally tally = trials::RunWorkers(devices, [&](int worker, const trials::Notes& notes) {
    return Soak(programs, results / devices, commands / devices, seconds, worker == 0, notes);
  });
  const auto took = std::chrono::duration_cast<std::chrono::seconds>(Loop::Clock::now() - start).count();
  const long failed = trials::Sum(tally, "failed");
  printf("\n%ld results and %ld commands to %d devices in %lld s; %s.\n", trials::Sum(tally, "results"),
         trials::Sum(tally, "commands"), devices, static_cast<long long>(took),
         failed == 0 ? "all came back, nothing grew" : "FAILED");
  return failed == 0 ? 0 : 1;
}
