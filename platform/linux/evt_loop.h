// The event loop behind evt_timer.h and the bus client: libevent's, with owning handles.
#pragma once

#include <event2/event.h>

#include <exception>
#include <memory>
#include <stdexcept>

#include "lx_logging.h"

namespace lxconn {

// Shared: the bus client makes it, and each timer bound to it keeps it alive, since the server stops the bus client
// before it destroys its timers.
class EVT_LOOP : public std::enable_shared_from_this<EVT_LOOP> {
 public:
  EVT_LOOP() : base_(MakeBase()) {
    if (base_ == nullptr) throw std::runtime_error("the system gives no event loop");
  }
  ~EVT_LOOP() { event_base_free(base_); }
  EVT_LOOP(const EVT_LOOP&) = delete;
  EVT_LOOP& operator=(const EVT_LOOP&) = delete;

  event_base* base() const { return base_; }

 private:
  // With the library's usual clock, which is a few milliseconds late, a timer wakes the process too early and then
  // again.
  static event_base* MakeBase() {
    const std::unique_ptr<event_config, void (*)(event_config*)> config(event_config_new(), &event_config_free);
    if (!config || event_config_set_flag(config.get(), EVENT_BASE_FLAG_PRECISE_TIMER) != 0) return nullptr;
    return event_base_new_with_config(config.get());
  }

  event_base* const base_;
};

struct EventDeleter {
  void operator()(event* e) const { event_free(e); }
};
using EventPtr = std::unique_ptr<event, EventDeleter>;

// Runs what a C library calls back. An exception cannot cross the library's frames: it is logged and the loop goes on.
template <typename Body>
void AtCallbackEdge(const char* callback, Body body) noexcept {
  try {
    body();
  } catch (const std::exception& e) {
    lxlogging::CLxLogStream(lxlogging::kError, "platform/linux/loop", __LINE__, 0)
        << "exception out of a " << callback << " callback: " << e.what();
  } catch (...) {
    lxlogging::CLxLogStream(lxlogging::kError, "platform/linux/loop", __LINE__, 0)
        << "something that is no exception out of a " << callback << " callback";
  }
}

}  // namespace lxconn
