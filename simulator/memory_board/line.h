// One of the board's serial ports and what hangs on it: bytes on their way to the driver, each with the time at which
// it is there, and whoever listens to the bytes that the driver writes.
#pragma once

#include <termios.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>

namespace memory_board {

using Micros = uint64_t;
constexpr Micros kMillisecond = 1000;
constexpr Micros kSecond = 1000 * kMillisecond;

class Line {
 public:
  // What the far end gets, with the time at which the last byte has left the port.
  std::function<void(std::string_view bytes, Micros when)> far_end;

  // As it was made; the far end stays.
  void Reset();

  // ---- the far end's side ----
  void Arrive(std::string_view bytes, Micros when) { arriving_.push_back({when, std::string(bytes)}); }
  void Stick(Micros until) { stuck_until_ = until; }

  // ---- the driver's side ----
  int Queued(Micros now) const;
  std::string Read(size_t most, Micros now);
  void DropInput(Micros now);
  bool TakesBytes(Micros now) const { return now >= stuck_until_; }
  void Write(std::string_view bytes, Micros now);
  Micros drained_at() const { return drained_at_; }
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

}  // namespace memory_board
