// "parkctl watch": the bus, live.
#pragma once

#include <cstdint>

namespace parkctl {

struct WatchOptions {
  uint16_t bus_port = 0;
  uint16_t store_port = 0;
  bool json = false;
  uint64_t count = 0;  // messages after which to end; 0: none
};

// Runs until interrupted, until the count is reached or until nobody reads its output. A broker that goes away is
// reported and awaited.
int Watch(const WatchOptions& options);

}  // namespace parkctl
