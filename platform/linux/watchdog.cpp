#include "watchdog.h"

#include <systemd/sd-daemon.h>

#include <cstring>

#include "lx_logging.h"

namespace {

constexpr char kLogSource[] = "platform/linux/watchdog";
constexpr uint32_t kSupervisorListens = 1;

bool feeding_fails = false;

}  // namespace

uint32_t RegisterWatchDogKey(const char* /*name*/, int, int) {
  const int sent = sd_notify(0, "READY=1");
  if (sent < 0) {
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << "the supervisor cannot be told: " << strerror(-sent);
  }
  return sent > 0 ? kSupervisorListens : 0;
}

void FeedDog(uint32_t key) {
  if (key == 0) return;
  const int sent = sd_notify(0, "WATCHDOG=1");
  if (sent < 0 && !feeding_fails) {
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << "the watchdog cannot be fed: " << strerror(-sent);
  }
  feeding_fails = sent < 0;
}
