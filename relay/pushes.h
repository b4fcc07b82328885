// What the daemon is told, and when. Every push makes it write to displays on a slow line: one at a time, with room
// between them, and only the newest.
#pragma once

#include <array>
#include <optional>
#include <utility>

#include "relay/own_counts.h"
#include "relay/site_counts.h"

namespace relay {

class Pushes {
 public:
  // The direction is to show these from now on.
  void Want(size_t direction, const Counts& counts);
  // The direction is no longer the plan's: 0 of 0 once, if it was.
  void Unwant(size_t direction);
  bool IsWanted(size_t direction) const { return directions_[direction].wanted.has_value(); }

  // The daemon may have forgotten everything.
  void PushAllAgain();

  // What the daemon says that it holds.
  void Heard(const Frame& frame, Milliseconds now);

  // The next push that is due now, to be sent at once.
  std::optional<std::pair<size_t, Counts>> Next(Milliseconds now);
  // When there will be one, kNever while there is nothing to push.
  Milliseconds NextDue() const;

 private:
  struct Direction {
    std::optional<Counts> wanted;
    std::optional<Counts> pushed;
    bool again = false;      // pushed, but the daemon says otherwise
    bool doubted = false;    // the daemon's latest word, which may be older than the push
    bool insisted = false;   // pushed for a doubt, which is done once
    bool owes_zero = false;  // no longer wanted, and the daemon does not know
    Milliseconds pushed_at = 0;
  };
  static Milliseconds DueSince(const Direction& direction);

  std::array<Direction, kDirections> directions_;
  Milliseconds not_before_ = 0;
};

}  // namespace relay
