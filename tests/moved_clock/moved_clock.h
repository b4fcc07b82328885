// The wall clock of a test that links moved_clock.
#pragma once

#include <cstdint>

// So many seconds from the real one, from now on.
extern "C" void MoveWallClock(int64_t seconds);

// 2040-02-29 12:00:00 UTC: beyond what 32 bits of seconds hold.
constexpr int64_t kNoonIn2040 = 2214129600;
