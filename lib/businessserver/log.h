// The one form of a log line. A file that logs defines its kLogSource: its path from lib/businessserver/ without
// extension.
#pragma once

#include <exception>

#include "lx_logging.h"

#define BS_LOG(level) lxlogging::CLxLogStream(level, kLogSource, __LINE__, 0)
// Guarded, of the caller's own place.
#define BS_GUARDED(...) businessserver::Guarded(kLogSource, __LINE__, __VA_ARGS__)

namespace businessserver {

using lxlogging::kError;
using lxlogging::kInfo;
using lxlogging::kLifecycle;

// Runs a step. What it throws is logged at the error level, under the given place, and goes no further. True when it
// reached its end.
template <typename Step>
bool Guarded(const char* source, int line, Step step) {
  try {
    step();
    return true;
  } catch (const std::exception& error) {
    lxlogging::CLxLogStream(kError, source, line, 0) << error.what();
  } catch (...) {
    lxlogging::CLxLogStream(kError, source, line, 0) << "unknown error";
  }
  return false;
}

}  // namespace businessserver
