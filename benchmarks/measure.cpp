// Measures the daemon beside the responders that do less, and writes what it found.
//   measure BIN_DIR SOURCE_DIR OUTPUT_DIR [--quick] [--only STEP]
#include <cstdio>
#include <exception>
#include <fstream>

#include "measurements.h"
#include "protocol/names.h"

namespace {

using namespace bench;

// clang-format off
//                       blocks rounds requests results bursts  burst  idle starts profiled growth  long run
constexpr Effort kFull  = {10,    10,     50,     10,     3,   20000,   5,    9,     200,    400,   1000000};
constexpr Effort kQuick = { 2,    10,     25,     10,     1,   20000,   3,    3,      50,    100,     20000};
// clang-format on

struct Step {
  const char* name;
  const char* title;
  void (*measure)(Device& device, const Effort& effort, Report& report);
};
constexpr Step kSteps[] = {
    {"latency", "requests, results and bursts, in interleaved rounds", MeasureLatency},
    {"resources", "idle, memory, start", MeasureResources},
    {"work", "instructions and allocations", MeasureWork},
    {"growth", "growth", MeasureGrowth},
    {"long", "long run", MeasureLongRun},
};

int Usage() {
  fprintf(stderr, "usage: measure BIN_DIR SOURCE_DIR OUTPUT_DIR [--quick] [--only STEP], where STEP is one of");
  for (const Step& step : kSteps) fprintf(stderr, " %s", step.name);
  fprintf(stderr, "\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) return Usage();
  const std::string source = argv[2], output = argv[3];
  const Effort* effort = &kFull;
  std::string only;
  for (int i = 4; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--quick") {
      effort = &kQuick;
    } else if (option == "--only" && i + 1 < argc) {
      only = argv[++i];
    } else {
      return Usage();
    }
  }
  try {
    std::string problem;
    if (!desk::EnterOwnNetwork(problem)) fprintf(stderr, "%s: ports 5291 and 5299 must be free\n", problem.c_str());
    Report report;
    Device device({argv[1], source + "/benchmarks", source + "/packaging"});
    device.StartDaemon(LogModes()[0]);  // stores the documents that the other responders read
    for (const Step& step : kSteps) {
      if (!only.empty() && only != step.name) continue;
      fprintf(stderr, "-- %s\n", step.title);
      step.measure(device, *effort, report);
    }
    std::ofstream(output + "/tables.md") << report.Text();
    if (only.empty()) std::ofstream(output + "/growth.svg") << report.Svg();
  } catch (const std::exception& error) {
    fprintf(stderr, "measure: %s\n", error.what());
    return 1;
  }
  return 0;
}
