// One real relay against many made-up devices.
#pragma once

#include "site_stage.h"

namespace trials {

struct SourcesLoad {
  int sources = 10000;
  int changes_a_second = 100;  // beside the repetitions
  int seconds = 30;
};

struct SourcesCost {
  double counted_after = 0;  // s, until the display shows all of them
  double share = 0;          // of a core, while they change
  int resident_kb = 0;
  int private_kb = 0;  // of these, what nobody else has in memory
};

// Breaches are the stage's. False when it did not come up.
bool MeasureSources(Stage& stage, const SourcesLoad& load, SourcesCost* cost);

}  // namespace trials
