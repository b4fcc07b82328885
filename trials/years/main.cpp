// Plays years of a whole site in one process, with everything going wrong that can, and checks after every step what
// must hold. One seed is one history, to the last byte; one that fails is shrunk to the faults that it takes.
#include <unistd.h>
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>

#include "build_identity/build.h"
#include "years/shrink.h"
#include "years/site.h"

namespace {

// Seven weeks before a 32-bit clock ends, on the day on which a 32-bit count of milliseconds does.
constexpr int64_t kWallStart = 2143238400;  // 2037-12-01

double Seconds(std::chrono::steady_clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

void PrintBroken(const years::Outcome& outcome) {
  for (const years::Broken& broken : outcome.broken) {
    std::cout << years::TimeText(broken.at) << "  " << broken.what << "\n";
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Plays days of a site of made-up cameras in one process, faults included, and checks what must hold.\n"
      "Example: years --devices 10 --days 365 --seed 7"};
  years::History history;
  history.wall_start = kWallStart;
  bool whole = false;
  app.add_option("--devices", history.devices, "cameras of the site")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000));
  app.add_option("--days", history.days, "days to play")->capture_default_str()->check(CLI::Range(1, 100000));
  app.add_option("--seed", history.seed, "what is drawn follows from it")->capture_default_str();
  app.add_option("--from", history.first_day, "first day to play, counted from 0")->capture_default_str();
  app.add_flag("--no-shrink", whole, "a history that fails is told as it is");
  app.set_version_flag("--version", build::Line("years"));
  CLI11_PARSE(app, argc, argv);
  setenv("TZ", "UTC", 1);
  tzset();

  const bool shows_progress = isatty(STDOUT_FILENO) != 0;
  const auto began = std::chrono::steady_clock::now();
  const years::Outcome outcome = years::Play(history, [&](const years::Outcome& so_far) {
    if (!shows_progress) return;
    std::printf("\rday %" PRIu64 " of %" PRIu64 ", %" PRIu64 " faults ", so_far.days, history.days, so_far.faults);
    std::fflush(stdout);
  });
  const double took = Seconds(std::chrono::steady_clock::now() - began);
  if (shows_progress) std::printf("\r%60s\r", "");
  const bool held = outcome.broken.empty();
  if (!held) {
    PrintBroken(outcome);
    if (!whole) years::TellShrunk(history, history.first_day + outcome.days - 1, std::cout);
  }
  std::printf("%" PRIu64 " checks, %.0f times faster than the clock\n", outcome.checks,
              static_cast<double>(outcome.days) * 86400 / took);
  std::printf("%" PRIu64 " days of %u devices in %.1f s, %" PRIu64 " faults, digest %016" PRIx64 ": %s\n", outcome.days,
              history.devices, took, outcome.faults, outcome.digest,
              held ? "every promise held" : "a promise was broken");
  return held ? 0 : 1;
}
