// The measurements, each adding its tables and goals to the report.
#pragma once

#include "device.h"
#include "report.h"

namespace bench {

struct Effort {
  int blocks;           // of the latencies: the daemon is started anew in each, once for each way of logging
  int rounds;           // in a block
  int requests;         // in a round, of each kind
  int results;          // in a round, of each kind
  int burst_blocks;     // blocks that have a burst
  int burst;            // requests in it
  double idle_seconds;  // for each way of logging
  int starts;           // of the daemon, on a fresh and on a filled store
  int profiled_events;  // of each kind, under the profiler
  int growth_events;    // of each kind, for each number of neighbours
  long long_run;        // results
};

// Requests, results and bursts, against the responders that do less.
void MeasureLatency(Device& device, const Effort& effort, Report& report);

// Idle cost, memory, start-up, and what a long run leaves behind.
void MeasureResources(Device& device, const Effort& effort, Report& report);
void MeasureLongRun(Device& device, const Effort& effort, Report& report);

// Instructions and allocations per event, under a profiler that counts them.
void MeasureWork(Device& device, const Effort& effort, Report& report);

// What neighbours cost as they become more.
void MeasureGrowth(Device& device, const Effort& effort, Report& report);

}  // namespace bench
