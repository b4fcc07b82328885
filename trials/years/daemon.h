// The business server as a process that can be played: it runs on a stack of its own, has a time of its own while it
// works, and can be ended at any call that it makes to its platform.
#pragma once

#include <ucontext.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "dp_client.h"
#include "years/schedule.h"

namespace years {

class Device;

// Unwinds the daemon's stack. No std::exception: the daemon survives those.
struct Killed {};

class Daemon {
 public:
  Daemon(Schedule& schedule, Device& device);
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  void Start();
  void Kill();
  // Kills it at its n-th call to the platform from now on, in the midst of whatever it does then.
  void KillAtCall(unsigned calls) { calls_left_ = calls; }

  bool running() const { return running_; }
  uint64_t life() const { return life_; }  // grows with each start and each end
  bool Busy() const { return busy_until_ > schedule_.now(); }

  // Has it do something as soon as it has ended what it is doing; nothing, when it was restarted meanwhile.
  void Do(Micros when, std::function<void()> what);

  // Called when it has ended, killed or not.
  std::function<void(bool killed)> on_end;

  // ---- for the platform that it calls ----
  static Daemon* Current();  // null while none runs
  Device& device() { return device_; }
  Micros now() const { return local_; }
  void Sleep(Micros duration) { local_ += duration; }
  void SleepUntil(Micros when) { local_ = when > local_ ? when : local_; }
  void Call();     // before each call's effect: may end the process here
  void Suspend();  // in the poll: until the end
  bool dying() const { return dying_; }

  DpMsgCallback on_message = nullptr;
  DpStatusCallback on_status = nullptr;
  void* user = nullptr;
  std::set<std::string> subscriptions;
  Micros fed_at = 0;

 private:
  static void Main();
  void Enter(const std::function<void()>& what);
  void Resume();
  void Bury();

  Schedule& schedule_;
  Device& device_;
  std::vector<char> stack_;
  ucontext_t inside_ = {}, outside_ = {};
  bool running_ = false;
  bool dying_ = false;
  bool suspended_ = false;
  uint64_t life_ = 0;
  Micros local_ = 0;
  Micros busy_until_ = 0;
  unsigned calls_left_ = 0;  // 0: not counted
};

}  // namespace years
