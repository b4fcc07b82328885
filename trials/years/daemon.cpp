#include "years/daemon.h"

#include <boost/shared_ptr.hpp>
#include <utility>

#include "server/business_server.h"
#include "years/device.h"

namespace years {
namespace {

constexpr size_t kStackSize = 1 << 20;

Daemon* current = nullptr;

// Sets who runs, and on which board.
void MakeCurrent(Daemon* daemon) {
  current = daemon;
  memory_board::MemoryBoard::MakeCurrent(daemon == nullptr ? nullptr : &daemon->device());
}

}  // namespace

Daemon::Daemon(Schedule& schedule, Device& device) : schedule_(schedule), device_(device), stack_(kStackSize) {}

Daemon::~Daemon() {
  on_end = nullptr;
  Kill();
}

Daemon* Daemon::Current() { return current; }

void Daemon::Do(Micros when, std::function<void()> what) {
  schedule_.At(when, [this, what = std::move(what), life = life_]() mutable {
    if (life != life_) return;
    if (Busy()) {
      Do(busy_until_, std::move(what));
    } else {
      Enter(what);
    }
  });
}

void Daemon::Start() {
  if (running_) return;
  running_ = true;
  dying_ = suspended_ = false;
  calls_left_ = 0;
  ++life_;
  subscriptions.clear();
  on_message = nullptr;
  on_status = nullptr;
  busy_until_ = fed_at = schedule_.now();
  getcontext(&inside_);
  inside_.uc_stack.ss_sp = stack_.data();
  inside_.uc_stack.ss_size = stack_.size();
  inside_.uc_link = nullptr;
  makecontext(&inside_, Main, 0);
  Do(schedule_.now(), [this] { Resume(); });
}

void Daemon::Main() {
  Daemon* const self = current;
  try {
    const boost::shared_ptr<businessserver::BusinessServer> server(new businessserver::BusinessServer);
    server->Start();
  } catch (const Killed&) {
  }
  self->running_ = false;
  swapcontext(&self->inside_, &self->outside_);
}

void Daemon::Resume() { swapcontext(&outside_, &inside_); }

void Daemon::Enter(const std::function<void()>& what) {
  MakeCurrent(this);
  local_ = schedule_.now();
  try {
    what();
  } catch (const Killed&) {
  }
  busy_until_ = local_;
  if (dying_ || !running_) Bury();
  MakeCurrent(nullptr);
}

void Daemon::Kill() {
  if (!running_) return;
  dying_ = true;
  MakeCurrent(this);
  Bury();
  MakeCurrent(nullptr);
}

// Unwinds what is left of it. What a process holds goes with it: no call that is made on the way has an effect.
void Daemon::Bury() {
  const bool killed = dying_;
  dying_ = true;
  ++life_;
  if (running_ && suspended_) Resume();
  running_ = false;
  busy_until_ = schedule_.now();
  if (on_end) on_end(killed);
}

void Daemon::Call() {
  if (calls_left_ > 0 && --calls_left_ == 0) dying_ = true;
  if (dying_) throw Killed();
}

void Daemon::Suspend() {
  suspended_ = true;
  swapcontext(&inside_, &outside_);
  throw Killed();
}

}  // namespace years
