// The request to end, SIGTERM or SIGINT, as an event of the loop: time for last words, then the process ends by that
// signal as it would have. A loop that does not come round to it within two seconds does not keep it alive.
#pragma once

#include <functional>

#include "evt_loop.h"

namespace platform {

class EndSignals {
 public:
  EndSignals(event_base* base, std::function<void()> last_words);
  ~EndSignals();
  EndSignals(const EndSignals&) = delete;
  EndSignals& operator=(const EndSignals&) = delete;

 private:
  static void OnSignal(evutil_socket_t, short, void* self);

  const std::function<void()> last_words_;
  lxconn::EventPtr event_;
};

}  // namespace platform
