#include "single_instance.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>

#include "shell.h"

namespace businessserver {

namespace {

constexpr char kSocketName[] = "business_server";
constexpr int kTries = 20;
constexpr unsigned kPauseMicroseconds = 10000;

int NewSocket() { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }

// Anybody may take the name; only one who runs as this user can be this program. Zero or an error for others.
bool IsHeldByThisUser(const sockaddr_un& address, socklen_t size) {
  const int fd = NewSocket();
  ucred holder = {};
  socklen_t holder_size = sizeof holder;
  const bool known = connect(fd, reinterpret_cast<const sockaddr*>(&address), size) == 0 &&
                     getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &holder, &holder_size) == 0;
  if (fd >= 0) close(fd);
  return known && holder.uid == geteuid();
}

}  // namespace

bool ClaimDevice() {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  // Behind a NUL: a name and no file that could be left behind.
  const int length = snprintf(address.sun_path + 1, sizeof address.sun_path - 1, "%s", kSocketName);
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<size_t>(length));
  const int fd = NewSocket();  // never closed; the programs that the server starts do not inherit it
  for (int tries = 0; tries < kTries; ++tries) {
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), size) == 0) {
      listen(fd, SOMAXCONN);  // nobody takes the connections: each that asked waits for as long as this process lives
      return true;
    }
    if (errno != EADDRINUSE) return true;
    if (IsHeldByThisUser(address, size)) return false;
    SleepMicroseconds(kPauseMicroseconds);  // it may be about to listen, or to end
  }
  close(fd);
  return true;  // somebody else's: not a reason to leave the lamp dark
}

}  // namespace businessserver
