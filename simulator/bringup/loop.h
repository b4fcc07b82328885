// The one loop of the desk: descriptors and timers, all on the calling thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>

namespace desk {

class Loop {
 public:
  Loop();
  ~Loop();
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  using Clock = std::chrono::steady_clock;
  using Milliseconds = std::chrono::milliseconds;
  using Task = std::function<void()>;
  using Condition = std::function<bool()>;

  // Calls on_ready whenever the descriptor can be read (or has hung up) and, while wants_write says so, when it can be
  // written. One watcher a descriptor; it has to be taken off before the descriptor is closed.
  void Watch(int descriptor, Task on_ready, Condition wants_write = {});
  void Unwatch(int descriptor);

  // Both return a number for Cancel. Numbers are never reused, so cancelling a timer that has fired is harmless.
  uint64_t After(Milliseconds delay, Task task);
  uint64_t Every(Milliseconds period, Task task);
  void Cancel(uint64_t timer);

  // Waits for the next thing to happen, at most max_wait, and handles everything that is due.
  void Turn(Milliseconds max_wait);

  // Turns until the condition holds or the time is up. Returns whether it holds.
  bool RunUntil(const Condition& condition, Milliseconds limit);
  void RunFor(Milliseconds duration);

 private:
  struct Watcher {
    Task on_ready;
    Condition wants_write;
    bool writing = false;  // what the kernel was told last
  };
  struct Timer {
    Clock::time_point due;
    Milliseconds period;  // 0: fires once
    Task task;
  };

  void PollDescriptors(int timeout);
  void FireTimers();

  void TellKernel(int operation, int descriptor, bool writing) const;

  const int epoll_;
  std::map<int, Watcher> watchers_;
  std::set<int> writers_;  // those that ever want to write
  std::map<uint64_t, Timer> timers_;
  uint64_t next_timer_ = 1;
};

}  // namespace desk
