// The guard of this device's configuration: a small process that sets a change, and sets everything back in time unless
// somebody confirms it, also when whoever asked is gone. It answers try_change, keep_change, undo_change and get_change
// (relay/change_guard.h) on the bus's CHANGE_REQUEST_MESSAGE, below reply/ only; what is to be set back lies in the
// store.
#pragma once

#include "config_device.h"

namespace parkctl {

// Runs it in this process. once: it ends when no change waits for some seconds, otherwise it goes on for ever.
int RunChangeGuard(const ConfigDeviceOptions& options, bool once);

bool ChangeGuardRuns();  // on this device

// Starts one, in a session of its own, unless one answers. False when none came up.
bool EnsureChangeGuard(const ConfigDeviceOptions& options);

}  // namespace parkctl
