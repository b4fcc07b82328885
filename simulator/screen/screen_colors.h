// Colour pairs of the live screen. Added to each: the terminal's colour number, which for the lamp is the three lamp
// lines taken as a number: line 1 red, line 2 green, line 3 blue.
#pragma once

namespace desk {

inline constexpr int kTextPair = 10;
inline constexpr int kLampPair = 20;

}  // namespace desk
