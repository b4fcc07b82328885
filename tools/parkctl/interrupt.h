// For commands that run until they are told to end.
#pragma once

#include <string>

namespace parkctl {

void EndOnInterrupt();  // from now on SIGINT and SIGTERM end waits, and are remembered
bool Interrupted();

// "2026-03-01 12:34:56.789", local time; from offset 11 on it is the time of day.
std::string Now();

}  // namespace parkctl
