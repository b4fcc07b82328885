#include "relay/pushes.h"

#include <algorithm>

namespace relay {

namespace {

constexpr Milliseconds kSpacing = 500;
constexpr Milliseconds kRepeat = 25000;     // the daemon forgets who is silent for 70 s
constexpr Milliseconds kReflection = 1000;  // until the daemon's word is its answer to a push

}  // namespace

void Pushes::Want(size_t direction, const Counts& counts) {
  directions_[direction].wanted = counts;
  directions_[direction].owes_zero = false;
}

void Pushes::Unwant(size_t direction) {
  Direction& d = directions_[direction];
  if (d.wanted) d.owes_zero = true;
  d.wanted.reset();
  d.pushed.reset();
  d.again = d.doubted = false;
}

void Pushes::PushAllAgain() {
  for (Direction& direction : directions_) direction.pushed.reset();
}

void Pushes::Heard(const Frame& frame, Milliseconds now) {
  for (size_t i = 0; i < kDirections; ++i) {
    Direction& d = directions_[i];
    if (!d.pushed) continue;
    const bool contradicts = frame.reflects[i] != d.pushed;
    // Too soon, it may have been on its way; but a daemon that starts anew says what it holds only once.
    d.doubted = contradicts;
    if (now > d.pushed_at + kReflection) d.again |= contradicts;
  }
}

std::optional<std::pair<size_t, Counts>> Pushes::Next(Milliseconds now) {
  if (now < not_before_) return std::nullopt;
  // Who waits longest goes first: none starves while another changes all the time.
  const auto first = std::min_element(directions_.begin(), directions_.end(), [](const auto& a, const auto& b) {
    const Milliseconds due_a = DueSince(a), due_b = DueSince(b);
    return due_a != due_b ? due_a < due_b : a.pushed_at < b.pushed_at;
  });
  if (DueSince(*first) > now) return std::nullopt;
  first->insisted = first->doubted && first->pushed == first->wanted && !first->again;
  first->doubted = false;
  first->pushed = first->wanted;
  first->pushed_at = now;
  first->again = false;
  first->owes_zero = false;
  not_before_ = now + kSpacing;
  return std::pair(static_cast<size_t>(first - directions_.begin()), first->wanted.value_or(Counts()));
}

Milliseconds Pushes::NextDue() const {
  Milliseconds due = kNever;
  for (const Direction& direction : directions_) due = std::min(due, DueSince(direction));
  return due == kNever ? kNever : std::max(due, not_before_);
}

// 0 for what is due already.
Milliseconds Pushes::DueSince(const Direction& direction) {
  if (!direction.wanted) return direction.owes_zero ? 0 : kNever;
  if (direction.pushed != direction.wanted || direction.again) return 0;
  const bool insists = direction.doubted && !direction.insisted;
  return direction.pushed_at + (insists ? kReflection : kRepeat);
}

}  // namespace relay
