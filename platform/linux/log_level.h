// A change of the log's level while the process runs. SIGUSR1 shows everything, SIGUSR2 what the command line asked
// for.
#pragma once

#include <csignal>

namespace platform {

constexpr int kShowAllSignal = SIGUSR1;
constexpr int kShowUsualSignal = SIGUSR2;

// From now on these signals, which end a process by themselves, change what is shown.
void ListenToLevelSignals();

// Logs the level that a signal has set since the last call; a record of a level that is then shown.
void SayNewLevel();

}  // namespace platform
