// Tells what happens on the desk, one line each with its time.
#pragma once

#include <cstdio>
#include <string>

#include "desk/journal.h"

namespace desk {

class Narrator {
 public:
  Narrator(FILE* out, bool colors) : out_(out), colors_(colors) {}

  void Tell(const Event& event);
  void Mute(bool muted) { muted_ = muted; }

 private:
  FILE* out_;
  bool colors_;
  bool muted_ = false;
};

std::string ClockText(std::chrono::system_clock::time_point time);  // "12:34:56.789"

}  // namespace desk
