// The supervisor's watchdog.
#pragma once

#include <cstdint>

// Announces readiness. The two numbers are the watchdog's own. Returns a handle for FeedDog, 0 when no supervisor
// listens.
uint32_t RegisterWatchDogKey(const char* name, int, int);
void FeedDog(uint32_t key);

// Long work goes on: fed on the way, so that the supervisor does not take it for a hang. Costs next to nothing, before
// registration too.
void ReportProgress();
