// The supervisor's watchdog.
#pragma once

#include <cstdint>

// Announces readiness. The two numbers are the watchdog's own. Returns a handle for FeedDog, 0 when no supervisor
// listens.
uint32_t RegisterWatchDogKey(const char* name, int, int);
void FeedDog(uint32_t key);
