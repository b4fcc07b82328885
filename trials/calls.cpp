// A set command is interrupted everywhere: broker, store or daemon is killed at the first system call on its way, then
// at the second, and so on until the command gets through; once before the call is carried out and once after. Every
// time the device comes back, nothing that was acknowledged is lost and every document is one that was sent. Prints a
// table and every breach of a promise; exits nonzero when there was one.
//   calls [--documents N] [--marks] [--daemon PROGRAM] [--packaging DIRECTORY]
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "tracer.h"
#include "traffic.h"
#include "workers.h"

namespace {

using trials::Moment;
using trials::Notes;
using trials::Rig;
using trials::Tracer;
using trials::Traffic;

constexpr int kMostCalls = 400;  // of one program for one set; more would be a program that never rests

// False when the set got through before that call.
bool KillAt(Rig& rig, Traffic& traffic, size_t document, desk::Process& victim, int call, Moment moment,
            bool every_call, const Notes& notes) {
  traffic.Settle();
  const pid_t before = victim.pid();
  Tracer tracer(before, call, moment, every_call);
  if (!tracer.attached()) {
    trials::Breach("the " + victim.name() + " cannot be traced");
    return false;
  }
  const auto heard = std::make_shared<bool>(false);  // the answer may come much later
  const bool& answered = *heard;
  traffic.Set(document, [heard](bool) { *heard = true; });
  rig.loop.RunUntil([&] { return answered || tracer.HasKilled(); }, trials::kReturnLimit);
  if (!tracer.HasKilled() && answered) traffic.RunFor(5);  // what comes after the answer
  if (!tracer.HasKilled()) {
    if (!answered) trials::Breach("a set is not answered, and nothing was killed");
    return false;
  }
  const std::string name = victim.name() + (moment == Moment::kBefore ? " before " : " after ") + tracer.call();
  rig.loop.RunUntil([&] { return victim.running() && victim.pid() != before; }, trials::kReturnLimit);
  --rig.ended_by_itself[victim.name()];
  const bool may_be_refused = document == Traffic::kColours && &victim == &rig.device.store;
  if (!may_be_refused) traffic.CheckApplied(name);
  traffic.Go(Traffic::Pace::kSlow);
  notes.Add("back", traffic.AwaitReturn(name));
  traffic.CheckDocuments(name);
  traffic.CheckResults(name);
  notes.Add(victim.name() + (moment == Moment::kBefore ? " before" : " after"), 1);
  notes.Add("call " + tracer.call(), 1);
  return true;
}

int KillEverywhere(const trials::Programs& programs, size_t document, bool every_call, const Notes& notes) {
  trials::EnterQuietNetwork();
  Rig rig(programs);
  if (!rig.Start()) return 1;
  Traffic traffic(rig);
  traffic.AwaitReturn("start");
  for (desk::Process* victim : {&rig.device.broker, &rig.device.store, &rig.device.daemon}) {
    for (const Moment moment : {Moment::kBefore, Moment::kAfter}) {
      int call = 1;
      while (call < kMostCalls && KillAt(rig, traffic, document, *victim, call, moment, every_call, notes)) ++call;
      if (call == 1) trials::Breach("the " + victim->name() + " was never killed");
    }
  }
  if (rig.EndedByThemselves() > 0) trials::Breach("programs ended by themselves");
  return trials::Breaches() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  int documents = 6;
  bool marks = false;
  trials::Programs programs;
  CLI::App app("Kills the device's programs at each system call of a set command");
  app.add_option("--documents", documents, "how many of the commands, side by side")->check(CLI::Range(1, 6));
  app.add_flag("--marks", marks, "only at calls that leave a mark: writes, sends, syncs, renames, closes");
  programs.AddOptions(app, "calls");
  CLI11_PARSE(app, argc, argv);

  const trials::Tally tally = trials::RunWorkers(documents, [&](int worker, const Notes& notes) {
    return KillEverywhere(programs, static_cast<size_t>(worker), !marks, notes);
  });
  printf("| killed at each call | before it | after it |\n|---|---:|---:|\n");
  long all = 0;
  for (const std::string name : {"broker", "store", "daemon"}) {
    const long before = trials::Sum(tally, name + " before"), after = trials::Sum(tally, name + " after");
    printf("| %s | %ld | %ld |\n", name.c_str(), before, after);
    all += before + after;
  }
  printf("\n%ld kills on the way of %d commands, at", all, documents);
  for (const auto& [name, times] : tally) {
    if (name.rfind("call ", 0) == 0) printf(" %s (%zu)", name.c_str() + 5, times.size());
  }
  const auto back = tally.find("back");
  const long failed = trials::Sum(tally, "failed");
  printf("; back after %s s at most; %s.\n",
         trials::Seconds(back == tally.end() ? std::vector<int>() : back->second, 100).c_str(),
         failed == 0 ? "no breach" : (std::to_string(failed) + " commands with a breach").c_str());
  return failed == 0 && all > 0 ? 0 : 1;
}
