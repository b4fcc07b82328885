// park_relay: stands between the message bus of this device and the hub of its site.
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "build_identity/build.h"
#include "lx_logging.h"
#include "relay/program.h"

namespace {

constexpr char kLogSource[] = "relay/main";

constexpr char kUsage[] =
    "usage: park_relay [-v N] [-f PATH] [--site-password PATH] [--help] [--version]\n"
    "\n"
    "Tells the site what this device sees, and this device what the site sees. Where it belongs stands in the "
    "device's\n"
    "store (key relay_value).\n"
    "\n"
    "  -v N                   log records of level N and up: 1 all (default), 2 lifecycle, 3 errors;\n"
    "                         SIGUSR1 has a running relay log all, SIGUSR2 what N says\n"
    "  -f PATH                log to a rotating file instead of standard error\n"
    "  --site-password PATH   file whose first line is the device's password at the hub\n"
    "  --help, --version      what you read; which build it is\n";

struct Arguments {
  std::string site_password;
  std::vector<char*> logging;  // what the log takes
};

// Returns an exit status, or -1 to go on.
int ParseArguments(int argc, char** argv, Arguments* arguments) {
  arguments->logging.push_back(argv[0]);
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (option == "--version") {
      std::puts(build::Line("park_relay").c_str());
      return 0;
    }
    const bool known = option == "-v" || option == "-f" || option == "--site-password";
    if (!known || i + 1 == argc) {
      std::fprintf(stderr, "park_relay: %s %s\n%s", option.c_str(), known ? "wants a value" : "is not known", kUsage);
      return 2;
    }
    if (option == "--site-password") {
      arguments->site_password = argv[++i];
    } else {
      arguments->logging.push_back(argv[i]);
      arguments->logging.push_back(argv[++i]);
    }
  }
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  Arguments arguments;
  if (const int status = ParseArguments(argc, argv, &arguments); status >= 0) return status;
  InitLxLogging(static_cast<int>(arguments.logging.size()), arguments.logging.data());
  struct sigaction end = {};
  end.sa_handler = [](int) { relay::Program::EndSoon(); };
  sigaction(SIGTERM, &end, nullptr);
  sigaction(SIGINT, &end, nullptr);

  std::random_device random;
  relay::Start start;
  char run[9];
  std::snprintf(run, sizeof run, "%08x", random());
  start.run = run;
  start.version = build::kVersion;
  start.since = std::time(nullptr);
  start.seed = random();
  std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), start.boot);
  int status = 1;
  try {
    lxlogging::CLxLogStream(lxlogging::kLifecycle, kLogSource, __LINE__, 0)
        << build::Line("park_relay") << " begins, run " << start.run;
    status = relay::Program(start, arguments.site_password).Run();
    lxlogging::CLxLogStream(lxlogging::kLifecycle, kLogSource, __LINE__, 0) << "park_relay ends";
  } catch (const std::exception& error) {
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0) << error.what();
  }
  ExitLxLogging();
  return status;
}
