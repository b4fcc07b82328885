// The board on a desk, as a program: plays scripts, tells what happens, and shows a live screen.
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <vector>

#include "desk.h"
#include "narrator.h"
#include "script.h"
#include "script_runner.h"

namespace {

volatile sig_atomic_t g_stop = 0;

void CatchSignals() {
  struct sigaction action {};
  action.sa_handler = [](int) { g_stop = 1; };
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
}

struct Options {
  desk::DeskPlan plan;
  std::vector<std::string> scripts;
  bool stay = false;
  bool log = false;
};

int RunDesk(const Options& options, const std::vector<desk::Script>& scripts) {
  desk::Desk device(options.plan);
  desk::Narrator narrator(stdout, isatty(STDOUT_FILENO) != 0);
  device.journal().Listen([&](const desk::Event& event) { narrator.Tell(event); });
  if (options.log) device.daemon_log().Listen([&](const desk::Event& event) { narrator.Tell(event); });
  std::string problem;
  if (!device.Start(problem)) {
    std::cerr << "simulator: " << problem << "\n";
    return 2;
  }
  const auto interrupted = [] { return g_stop != 0; };
  desk::ScriptRunner runner(device, interrupted);
  for (const auto& script : scripts) {
    if (runner.Run(script, problem)) continue;
    std::cerr << problem << "\n";
    return 1;
  }
  if (!scripts.empty())
    std::cout << "\nAll " << runner.expectations_met() << " expectations were seen.\n" << std::flush;
  if (options.stay || scripts.empty()) {
    device.loop().RunUntil(interrupted, desk::Loop::Milliseconds::max() / 4000000);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  const auto here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  options.plan.directory = "desk";
  options.plan.daemon = (here / "business_server").string();
  options.plan.packaging = DESK_PACKAGING;

  CLI::App app("The parking camera's board on a desk");
  app.add_option("--script", options.scripts, "Plays this script; may be given several times");
  app.add_option("--directory", options.plan.directory, "Where the device's files go");
  CLI11_PARSE(app, argc, argv);

  std::vector<desk::Script> scripts(options.scripts.size());
  std::vector<std::string> mistakes;
  for (size_t i = 0; i < scripts.size(); ++i) desk::ReadScript(options.scripts[i], scripts[i], mistakes);
  for (const auto& mistake : mistakes) std::cerr << mistake << "\n";
  if (!mistakes.empty()) return 2;

  CatchSignals();
  return RunDesk(options, scripts);
}
