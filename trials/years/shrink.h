// From a history that fails to the few faults that make it fail.
#pragma once

#include <cstdint>
#include <ostream>

#include "years/site.h"

namespace years {

// Plays the day on which a promise broke by itself, then with fewer and fewer faults as long as a promise still
// breaks, and tells which faults are left and what they break.
void TellShrunk(const History& history, uint64_t day, std::ostream& out);

}  // namespace years
