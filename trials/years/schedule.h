// The one clock of a played site, and what is to happen on it. Equal times keep the order in which they were asked for.
#pragma once

#include <cstdint>
#include <functional>
#include <queue>
#include <utility>
#include <vector>

#include "memory_board/line.h"

namespace years {

using memory_board::kMillisecond;
using memory_board::kSecond;
using memory_board::Micros;
constexpr Micros kMinute = 60 * kSecond;
constexpr Micros kDay = 24 * 60 * kMinute;

class Schedule {
 public:
  Micros now() const { return now_; }

  void At(Micros when, std::function<void()> what) {
    queue_.push({when < now_ ? now_ : when, ++asked_, std::move(what)});
  }
  void In(Micros delay, std::function<void()> what) { At(now_ + delay, std::move(what)); }

  void RunUntil(Micros end) {
    while (!queue_.empty() && queue_.top().when <= end) {
      // The queue's order does not look at what is moved out.
      auto what = std::move(const_cast<Entry&>(queue_.top()).what);
      now_ = queue_.top().when;
      queue_.pop();
      what();
    }
    now_ = end;
  }

 private:
  struct Entry {
    Micros when;
    uint64_t asked;
    std::function<void()> what;
    bool operator<(const Entry& other) const { return when != other.when ? when > other.when : asked > other.asked; }
  };

  Micros now_ = 0;
  uint64_t asked_ = 0;
  std::priority_queue<Entry> queue_;
};

}  // namespace years
