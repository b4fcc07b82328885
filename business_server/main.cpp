#include <boost/shared_ptr.hpp>
#include <cstdio>
#include <string_view>

#include "build_identity/build.h"
#include "lx_logging.h"
#include "server/business_server.h"
#include "single_instance.h"

namespace {

constexpr char kLogSource[] = "business_server/main";
constexpr int kBadArguments = 2;

constexpr char kHelp[] =
    "business_server: the daemon of the parking camera. It runs until it is ended.\n"
    "  -v LEVEL    log this level and up: 1 progress (the default), 2 lifecycle, 3 errors\n"
    "              SIGUSR1 has a running one log all, SIGUSR2 what LEVEL says\n"
    "  -f PATH     log to a file of 1 MiB and two older ones, instead of to standard error\n"
    "  --help      print this and exit\n"
    "  --version   print which build it is and exit\n";

bool IsLevel(std::string_view text) {
  return !text.empty() && text.size() < 10 && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// The exit status of a process that is not to become the daemon, -1 for one that is.
int StatusOf(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view option = argv[i];
    const std::string_view value = i + 1 < argc ? argv[i + 1] : "";
    if (option == "--help" || option == "-h") {
      fputs(kHelp, stdout);
      return 0;
    }
    if (option == "--version") {
      puts(build::Line("business_server").c_str());
      return 0;
    }
    if ((option != "-v" || !IsLevel(value)) && (option != "-f" || value.empty())) {
      fprintf(stderr, "business_server: %s is no option, or lacks its value; --help shows them\n", argv[i]);
      return kBadArguments;
    }
    ++i;
  }
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  if (const int status = StatusOf(argc, argv); status >= 0) return status;
  InitLxLogging(argc, argv);
  BS_LOG(lxlogging::kLifecycle) << build::Line("business_server") << " begins";
  if (!businessserver::ClaimDevice()) {
    BS_LOG(lxlogging::kError) << "another business_server runs on this device, this one ends";
    return 1;
  }
  BS_LOG(lxlogging::kInfo) << "start business main";
  boost::shared_ptr<businessserver::BusinessServer> server(new businessserver::BusinessServer);
  BS_LOG(lxlogging::kInfo) << "start business start";
  server->Start();
  ExitLxLogging();
  // Kept: after the logging was shut down, so that it comes out on standard error also where there is a log file.
  BS_LOG(lxlogging::kLifecycle) << "BusnessServer End";
  server.reset();
  return 0;
}
