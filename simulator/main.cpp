// The board on a desk, as a program: plays scripts, tells what happens, and shows a live screen.
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <vector>

#include "bringup/hub.h"
#include "build_identity/build.h"
#include "desk/desk.h"
#include "screen/narrator.h"
#include "screen/screen.h"
#include "script/script.h"
#include "script/script_runner.h"
#include "single_keys.h"
#include "site_program.h"

namespace {

// Exit status: everything expected was seen, something was not, the desk could not be set up.
constexpr int kAllSeen = 0;
constexpr int kNotSeen = 1;
constexpr int kNotStarted = 2;

volatile sig_atomic_t g_stop = 0;
bool Interrupted() { return g_stop != 0; }

void CatchSignals() {
  struct sigaction action {};
  action.sa_handler = [](int) { g_stop = 1; };
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
}

struct Options {
  desk::DevicePlan plan;
  int site = 0;  // devices; 0: a single one
  std::string pages;
  std::string parkctl;
  std::vector<std::string> scripts;
  bool screen = false;
  bool stay = false;
  bool log = false;
};

bool OnTerminal() { return isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0; }

void SayHowToPoke() {
  std::cout << R"(
The device stays up. Poke it from another terminal:

  mosquitto_rr -p 5291 -V 5 -t BUS_REQUEST_MESSAGE -e reply/me -m '{"type":"get_ttyio_cfg"}'
  redis-cli -p 5299 hget kvdb bus_led_color_value

Here: s opens the live screen, q or Ctrl-C ends everything.

)" << std::flush;
}

// Shows the screen; false when it, or the user, asks for the end.
bool ShowScreen(desk::Screen& screen, desk::Narrator& narrator, std::string& problem) {
  desk::Screen::End end = desk::Screen::End::kQuit;
  narrator.Mute(true);
  const bool shown = screen.Run(Interrupted, end, problem);
  narrator.Mute(false);
  return shown && end == desk::Screen::End::kLeave && !Interrupted();
}

int Stay(const Options& options, desk::Desk& device, desk::Screen& screen, desk::Narrator& narrator) {
  std::string problem;
  if (options.screen && !ShowScreen(screen, narrator, problem)) {
    if (problem.empty()) return kAllSeen;
    std::cerr << "simulator: " << problem << "\n";
    return kNotStarted;
  }
  SayHowToPoke();
  const desk::SingleKeys keys;
  for (bool going_on = true; going_on && !Interrupted();) {
    char key = '\0';
    const bool typed = OnTerminal();
    if (typed) {
      device.loop().Watch(STDIN_FILENO, [&key] {
        if (read(STDIN_FILENO, &key, 1) <= 0) g_stop = 1;  // the terminal is gone
      });
    }
    device.loop().RunUntil([&key] { return key != '\0' || Interrupted(); }, desk::Loop::Milliseconds(1000));
    if (typed) device.loop().Unwatch(STDIN_FILENO);
    if (key == 's') going_on = ShowScreen(screen, narrator, problem);
    if (key == 'q') going_on = false;
    if (!problem.empty()) std::cerr << problem << "\n";
    problem.clear();
  }
  return kAllSeen;
}

int Play(const Options& options, const std::vector<desk::Script>& scripts, desk::Desk& device, desk::Screen& screen,
         desk::Narrator& narrator) {
  std::string problem;
  if (!device.Start(problem)) {
    std::cerr << "simulator: " << problem << "\n";
    return kNotStarted;
  }
  desk::ScriptRunner runner(device, Interrupted);
  for (const auto& script : scripts) {
    if (runner.Run(script, problem)) continue;
    std::cout << std::flush;
    std::cerr << "\n" << problem << "\n";
    return kNotSeen;
  }
  if (!scripts.empty()) {
    std::cout << "\nAll " << runner.expectations_met() << " expectations were seen.\n" << std::flush;
  }
  return options.stay || options.screen || scripts.empty() ? Stay(options, device, screen, narrator) : kAllSeen;
}

int RunDesk(const Options& options, const std::vector<desk::Script>& scripts) {
  desk::Desk device(options.plan);
  desk::Narrator narrator(stdout, isatty(STDOUT_FILENO) != 0);
  desk::Screen screen(device, options.parkctl);
  device.journal().Listen([&](const desk::Event& event) { narrator.Tell(event); });
  if (options.log) device.daemon_log().Listen([&](const desk::Event& event) { narrator.Tell(event); });
  // What the page changes goes back by itself unless it is kept: somebody on the device sees to that.
  desk::Process guard(device.loop(), "guard");
  if (!options.pages.empty()) {
    std::string problem;
    std::error_code no_matter;
    std::filesystem::create_directories(options.plan.directory, no_matter);
    guard.Configure({options.parkctl, "config", "guard"}, options.plan.directory);
    if (!guard.Start(problem)) std::cerr << problem << "\n";
  }
  const int result = Play(options, scripts, device, screen, narrator);
  guard.Stop();
  device.Stop();  // while there is someone to tell
  return result;
}

bool ReadScripts(const std::vector<std::string>& files, std::vector<desk::Script>& scripts) {
  std::vector<std::string> mistakes;
  for (const auto& file : files) {
    scripts.emplace_back();
    desk::ReadScript(file, scripts.back(), mistakes);
  }
  for (const auto& mistake : mistakes) std::cerr << mistake << "\n";
  return mistakes.empty();
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::error_code no_matter;
  const auto here = std::filesystem::read_symlink("/proc/self/exe", no_matter).parent_path();
  options.plan.directory = "desk";
  options.plan.daemon = (here / "business_server").string();
  options.plan.configuration = DESK_PACKAGING;
  options.parkctl = (here / "parkctl").string();

  CLI::App app(
      "The parking camera's board on a desk, with broker, store and daemon around it.\n"
      "Without a script it comes up and stays until Ctrl-C.");
  app.add_option("--script", options.scripts, "Plays this script; may be given several times")->type_name("FILE");
  app.add_flag("--screen", options.screen, "Opens the live screen (after the scripts, if there are any)");
  app.add_flag("--stay", options.stay, "Stays up after the scripts, until Ctrl-C");
  app.add_flag("--log", options.log, "Shows the daemon's log among the events");
  app.add_option("--directory", options.plan.directory, "Where the device's files go")->capture_default_str();
  app.add_flag("--keep-store", options.plan.keep_store, "Goes on with the documents stored in an earlier run");
  app.add_option("--daemon", options.plan.daemon, "The daemon's program")->capture_default_str();
  app.add_option("--packaging", options.plan.configuration, "Where mosquitto.conf and redis.conf are")
      ->capture_default_str();
  app.add_option("--site", options.site, "A car park of N devices with a hub, each in a network of its own")
      ->type_name("N")
      ->check(CLI::Range(6, 300));
  app.add_option("--pages", options.pages, "Where the console's index.html is; without: no page")->type_name("DIR");
  app.set_version_flag("--version", build::Line("simulator"));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kAllSeen : kNotStarted;
  }

  if (options.site > 0) {
    CatchSignals();
    return desk::RunSite({options.site, options.plan.directory, here, options.plan.configuration, options.pages,
                          options.scripts, options.stay},
                         Interrupted);
  }
  if (!options.pages.empty()) options.plan.broker_lines = desk::PageListener(desk::kDevicePagePort, options.pages);
  std::vector<desk::Script> scripts;
  if (!ReadScripts(options.scripts, scripts)) return kNotStarted;
  CatchSignals();
  return RunDesk(options, scripts);
}
