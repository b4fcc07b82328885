#include "memory_board/line.h"

#include <algorithm>

namespace memory_board {
namespace {

constexpr unsigned kBitsPerByte = 10;

// Bits of a second on the line; a speed of 0 sends nothing, and what is written to it is gone at once.
unsigned BitsPerSecond(const termios& settings) {
  switch (settings.c_cflag & CBAUD) {
    case B300:
      return 300;
    case B1200:
      return 1200;
    case B2400:
      return 2400;
    case B4800:
      return 4800;
    case B9600:
      return 9600;
    case B19200:
      return 19200;
    case B38400:
      return 38400;
    case B115200:
      return 115200;
    default:
      return 0;
  }
}

}  // namespace

void Line::Reset() {
  settings = {};
  arriving_.clear();
  stuck_until_ = drained_at_ = 0;
}

int Line::Queued(Micros now) const {
  size_t queued = 0;
  for (const Arrival& arrival : arriving_) queued += arrival.when <= now ? arrival.bytes.size() : 0;
  return static_cast<int>(queued);
}

std::string Line::Read(size_t most, Micros now) {
  std::string bytes;
  while (!arriving_.empty() && arriving_.front().when <= now && bytes.size() < most) {
    std::string& next = arriving_.front().bytes;
    const size_t taken = std::min(most - bytes.size(), next.size());
    bytes.append(next, 0, taken);
    next.erase(0, taken);
    if (next.empty()) arriving_.pop_front();
  }
  return bytes;
}

void Line::DropInput(Micros now) {
  while (!arriving_.empty() && arriving_.front().when <= now) arriving_.pop_front();
}

size_t Line::Unsent(Micros now) const {
  return now >= drained_at_ ? 0 : (drained_at_ - now) * BitsPerSecond(settings) / kBitsPerByte / kSecond + 1;
}

void Line::Write(std::string_view bytes, Micros now) {
  const unsigned speed = BitsPerSecond(settings);
  const Micros duration = speed == 0 ? 0 : bytes.size() * kBitsPerByte * kSecond / speed;
  drained_at_ = std::max(drained_at_, now) + duration;
  if (far_end && speed != 0) far_end(bytes, drained_at_);
}

}  // namespace memory_board
