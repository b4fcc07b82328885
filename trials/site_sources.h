// One relay against a large site: so many made-up devices with a hundred changes a second, and what that costs it.
#pragma once

#include "site_stage.h"

namespace trials {

// The program's exit status.
int PlaySources(const Programs& programs, int sources, int seconds_of_load);

}  // namespace trials
