#include "watchdog.h"

#include <systemd/sd-daemon.h>

#include <chrono>
#include <cstring>

#include "log_level.h"
#include "lx_logging.h"

namespace {

constexpr char kLogSource[] = "platform/linux/watchdog";
constexpr uint32_t kSupervisorListens = 1;

// A little more than the server's own period: while that is kept nothing more is sent.
constexpr auto kProgressPause = std::chrono::seconds(5);

uint32_t registered = 0;
std::chrono::steady_clock::time_point last_fed;
bool feeding_fails = false;

}  // namespace

uint32_t RegisterWatchDogKey(const char* /*name*/, int, int) {
  platform::ListenToLevelSignals();  // from the next word on they may come
  const int sent = sd_notify(0, "READY=1");
  if (sent < 0) {
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << "the supervisor cannot be told: " << strerror(-sent);
  }
  last_fed = std::chrono::steady_clock::now();
  registered = sent > 0 ? kSupervisorListens : 0;
  return registered;
}

void FeedDog(uint32_t key) {
  if (key == 0) return;
  last_fed = std::chrono::steady_clock::now();
  const int sent = sd_notify(0, "WATCHDOG=1");
  if (sent < 0 && !feeding_fails) {
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << "the watchdog cannot be fed: " << strerror(-sent);
  }
  feeding_fails = sent < 0;
}

void ReportProgress() {
  if (registered != 0 && std::chrono::steady_clock::now() - last_fed >= kProgressPause) FeedDog(registered);
}
