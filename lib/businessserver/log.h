// The one form of a log line. A file that logs defines its kLogSource: its path from lib/businessserver/ without
// extension.
#pragma once

#include "lx_logging.h"

#define BS_LOG(level) lxlogging::CLxLogStream(level, kLogSource, __LINE__, 0)

namespace businessserver {

using lxlogging::kError;
using lxlogging::kInfo;
using lxlogging::kLifecycle;

}  // namespace businessserver
