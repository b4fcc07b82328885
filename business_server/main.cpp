#include <boost/shared_ptr.hpp>

#include "lx_logging.h"
#include "server/business_server.h"

namespace {
constexpr char kLogSource[] = "business_server/main";
}

int main(int argc, char** argv) {
  InitLxLogging(argc, argv);
  lxlogging::CLxLogStream(lxlogging::kInfo, kLogSource, __LINE__, 0) << "start business main";
  boost::shared_ptr<businessserver::BusinessServer> server(new businessserver::BusinessServer);
  lxlogging::CLxLogStream(lxlogging::kInfo, kLogSource, __LINE__, 0) << "start business start";
  server->Start();
  ExitLxLogging();
  // Kept: after the logging was shut down, so that it is the last line also where the log goes to a file.
  lxlogging::CLxLogStream(lxlogging::kLifecycle, kLogSource, __LINE__, 0) << "BusnessServer End";
  server.reset();
  return 0;
}
