#include "watchdog.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "log_level.h"
#include "lx_logging.h"

namespace {

constexpr char kLogSource[] = "platform/linux/watchdog";
constexpr uint32_t kSupervisorListens = 1;

// A little more than the server's own period: while that is kept nothing more is sent.
constexpr auto kProgressPause = std::chrono::seconds(5);

// Tells the supervisor one word, by sd_notify(3)'s protocol: a datagram to the socket that NOTIFY_SOCKET names; a name
// that begins with @ is abstract. Returns 1 when it was sent, 0 when nobody listens, an error as -errno. Written here
// because libsystemd brings six more libraries with it, a megabyte of each process that says no more than two words.
int Tell(const char* word) {
  const char* const path = getenv("NOTIFY_SOCKET");
  if (path == nullptr || path[0] == '\0') return 0;
  sockaddr_un address = {};
  const size_t length = strlen(path);
  if ((path[0] != '/' && path[0] != '@') || length >= sizeof address.sun_path) return -EINVAL;
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, path, length);
  if (path[0] == '@') address.sun_path[0] = '\0';
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -errno;
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
  const ssize_t sent = sendto(fd, word, strlen(word), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), size);
  const int result = sent < 0 ? -errno : 1;
  close(fd);
  return result;
}

uint32_t registered = 0;
std::chrono::steady_clock::time_point last_fed;
bool feeding_fails = false;

}  // namespace

uint32_t RegisterWatchDogKey(const char* /*name*/, int, int) {
  platform::ListenToLevelSignals();  // from the next word on they may come
  const int sent = Tell("READY=1");
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
  const int sent = Tell("WATCHDOG=1");
  if (sent < 0 && !feeding_fails) {
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << "the watchdog cannot be fed: " << strerror(-sent);
  }
  feeding_fails = sent < 0;
}

void ReportProgress() {
  if (registered != 0 && std::chrono::steady_clock::now() - last_fed >= kProgressPause) FeedDog(registered);
}
