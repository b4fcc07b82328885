// "parkctl site status" and "parkctl site watch": a site as its hub tells it.
#pragma once

#include "device_link.h"

namespace parkctl {

enum class StatusForm { kText, kJson, kOpenMetrics };

struct StatusOptions {
  SiteOptions site;
  StatusForm form = StatusForm::kText;
  bool watch = false;  // until interrupted; drawn anew on a terminal, else a line for each device whose state changes
};

// kDone: every device is ok. kRefused: one is not, or there is none.
int SiteStatus(const StatusOptions& options);

struct SiteWatchOptions {
  SiteOptions site;
  bool json = false;
  uint64_t count = 0;  // messages after which to end; 0: none
};

// Counts and healths as they come, one a line.
int SiteWatch(const SiteWatchOptions& options);

}  // namespace parkctl
