// How this process treats the signals that its libraries and children run into.
#pragma once

#include <csignal>

namespace platform {

// A peer that goes away while it is written to is an error code, not the end of the process: the bus and store
// libraries and standard error all use plain write().
inline void IgnoreBrokenPipes() { std::signal(SIGPIPE, SIG_IGN); }

}  // namespace platform
