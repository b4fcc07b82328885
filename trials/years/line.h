// One of the board's serial ports and what hangs on it: bytes on their way to the daemon, each with the time at which
// it is there, and whoever listens to the bytes that the daemon writes.
#pragma once

#include <termios.h>

#include <deque>
#include <functional>
#include <string>

#include "years/schedule.h"

namespace years {

class Line {
 public:
  // What the far end gets, with the time at which the last byte has left the port.
  std::function<void(const std::string& bytes, Micros when)> far_end;

  // ---- the far end's side ----
  void Arrive(const std::string& bytes, Micros when) { arriving_.push_back({when, bytes}); }
  void Stick(Micros until) { stuck_until_ = until; }

  // ---- the daemon's side, at a time of its own ----
  int Queued(Micros now) const;
  std::string Read(size_t most, Micros now);
  void DropInput(Micros now);
  bool TakesBytes(Micros now) const { return now >= stuck_until_; }
  // Returns when the port has sent them all.
  Micros Write(const std::string& bytes, Micros now);
  Micros drained_at() const { return drained_at_; }
  // Bytes that have not left the port yet.
  size_t Unsent(Micros now) const;

  termios settings = {};

 private:
  struct Arrival {
    Micros when;
    std::string bytes;
  };

  std::deque<Arrival> arriving_;
  Micros stuck_until_ = 0;
  Micros drained_at_ = 0;
};

}  // namespace years
