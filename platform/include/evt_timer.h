// The event loop that the bus client runs, and timers on it.
#pragma once

#include <memory>

namespace lxconn {

class EVT_LOOP;

// fd is -1 and events are the loop's own bits: timers share the form of descriptor callbacks. The result is ignored.
// No exception may leave the callback.
using EVT_CALLBACK = int (*)(int fd, short events, const void* user);

// Unarmed until Start; destruction disarms it. May outlive the bus client, not its callback's user.
class EVT_TIMER {
 public:
  EVT_TIMER();
  ~EVT_TIMER();
  EVT_TIMER(const EVT_TIMER&) = delete;
  EVT_TIMER& operator=(const EVT_TIMER&) = delete;

  // Binds the timer. Returns 0, or -1 when loop or callback is null.
  int Init(EVT_LOOP* loop, EVT_CALLBACK callback, const void* user);

  // Arms it, replacing an earlier arming: first call after first_delay_ms, then every period_ms; with period 0 it
  // fires once. Returns 0, or -1 before Init.
  int Start(unsigned first_delay_ms, unsigned period_ms);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace lxconn
