#include "evt_timer.h"

#include "evt_loop.h"
#include "log_level.h"
#include "watchdog.h"

namespace lxconn {

namespace {

timeval FromMilliseconds(unsigned milliseconds) {
  return {static_cast<time_t>(milliseconds / 1000), static_cast<suseconds_t>(milliseconds % 1000 * 1000)};
}

}  // namespace

struct EVT_TIMER::Impl {
  std::shared_ptr<EVT_LOOP> loop;
  EVT_CALLBACK callback = nullptr;
  const void* user = nullptr;
  unsigned period_ms = 0;
  bool on_period = false;  // the event repeats with the period already
  EventPtr timer;          // goes before the loop

  static void Fire(evutil_socket_t fd, short events, void* self) {
    auto* const impl = static_cast<Impl*>(self);
    if (impl->period_ms == 0) {
      event_del(impl->timer.get());
    } else if (!impl->on_period) {
      const timeval period = FromMilliseconds(impl->period_ms);
      event_add(impl->timer.get(), &period);
      impl->on_period = true;
    }
    // Last: the callback may start the timer anew or destroy it.
    const EVT_CALLBACK callback = impl->callback;
    const void* const user = impl->user;
    AtCallbackEdge("timer", [&] { callback(fd, events, user); });
    ReportProgress();
    platform::SayNewLevel();
  }
};

EVT_TIMER::EVT_TIMER() : impl_(new Impl) {}
EVT_TIMER::~EVT_TIMER() = default;

int EVT_TIMER::Init(EVT_LOOP* loop, EVT_CALLBACK callback, const void* user) {
  if (loop == nullptr || callback == nullptr) return -1;
  impl_->timer.reset();
  impl_->loop = loop->shared_from_this();
  impl_->callback = callback;
  impl_->user = user;
  // Persistent: each period then counts from when the last one was due, not from when its callback ran.
  impl_->timer.reset(event_new(loop->base(), -1, EV_PERSIST, &Impl::Fire, impl_.get()));
  return impl_->timer ? 0 : -1;
}

int EVT_TIMER::Start(unsigned first_delay_ms, unsigned period_ms) {
  if (!impl_->timer) return -1;
  impl_->period_ms = period_ms;
  impl_->on_period = first_delay_ms == period_ms;
  const timeval first = FromMilliseconds(first_delay_ms);
  return event_add(impl_->timer.get(), &first);
}

}  // namespace lxconn
