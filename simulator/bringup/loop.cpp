#include "bringup/loop.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <vector>

namespace desk {

Loop::Loop() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {}
Loop::~Loop() { close(epoll_); }

void Loop::TellKernel(int operation, int descriptor, bool writing) const {
  epoll_event event{};
  event.events = EPOLLIN | (writing ? EPOLLOUT : 0u);
  event.data.fd = descriptor;
  epoll_ctl(epoll_, operation, descriptor, &event);
}

void Loop::Watch(int descriptor, Task on_ready, Condition wants_write) {
  if (wants_write) writers_.insert(descriptor);
  watchers_[descriptor] = {std::move(on_ready), std::move(wants_write)};
  TellKernel(EPOLL_CTL_ADD, descriptor, false);
}

void Loop::Unwatch(int descriptor) {
  if (watchers_.erase(descriptor) > 0) TellKernel(EPOLL_CTL_DEL, descriptor, false);
  writers_.erase(descriptor);
}

uint64_t Loop::After(Milliseconds delay, Task task) {
  timers_[next_timer_] = {Clock::now() + delay, Milliseconds(0), std::move(task)};
  return next_timer_++;
}

uint64_t Loop::Every(Milliseconds period, Task task) {
  timers_[next_timer_] = {Clock::now() + period, period, std::move(task)};
  return next_timer_++;
}

void Loop::Cancel(uint64_t timer) { timers_.erase(timer); }

void Loop::Turn(Milliseconds max_wait) {
  auto wait = max_wait;
  const auto now = Clock::now();
  for (const auto& [number, timer] : timers_) {
    // Rounded up, so that a timer is due when the wait for it ends.
    const auto left = std::chrono::duration_cast<Milliseconds>(timer.due - now) + Milliseconds(1);
    wait = std::min(wait, timer.due <= now ? Milliseconds(0) : left);
  }
  PollDescriptors(static_cast<int>(wait.count()));
  FireTimers();
}

// Handlers may add and remove watchers, so each one is looked up again just before its call.
void Loop::PollDescriptors(int timeout) {
  for (const int descriptor : writers_) {
    Watcher& watcher = watchers_.at(descriptor);
    if (watcher.wants_write() == watcher.writing) continue;
    watcher.writing = !watcher.writing;
    TellKernel(EPOLL_CTL_MOD, descriptor, watcher.writing);
  }
  std::array<epoll_event, 256> ready;
  const int count = epoll_wait(epoll_, ready.data(), static_cast<int>(ready.size()), timeout);
  for (int i = 0; i < count; ++i) {
    const auto found = watchers_.find(ready[static_cast<size_t>(i)].data.fd);
    if (found == watchers_.end()) continue;
    const Task on_ready = found->second.on_ready;
    on_ready();
  }
}

void Loop::FireTimers() {
  const auto now = Clock::now();
  std::vector<uint64_t> due;
  for (const auto& [number, timer] : timers_) {
    if (timer.due <= now) due.push_back(number);
  }
  std::sort(due.begin(), due.end(), [this](uint64_t a, uint64_t b) { return timers_.at(a).due < timers_.at(b).due; });
  for (const uint64_t number : due) {
    const auto found = timers_.find(number);
    if (found == timers_.end()) continue;  // an earlier task took it off
    const Task task = found->second.task;
    if (found->second.period.count() == 0) {
      timers_.erase(found);
    } else {
      found->second.due = now + found->second.period;
    }
    task();
  }
}

bool Loop::RunUntil(const Condition& condition, Milliseconds limit) {
  const auto end = Clock::now() + limit;
  while (!condition()) {
    const auto left = std::chrono::duration_cast<Milliseconds>(end - Clock::now());
    if (left.count() <= 0) return false;
    Turn(std::min(left, Milliseconds(20)));
  }
  return true;
}

void Loop::RunFor(Milliseconds duration) {
  RunUntil([] { return false; }, duration);
}

}  // namespace desk
