#include "bringup/pty.h"

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace desk {
namespace {

constexpr size_t kMostUnsent = 65536;

}  // namespace

Pty::~Pty() {
  if (far_ < 0) return;
  loop_.Unwatch(far_);
  close(far_);
  if (near_ >= 0) close(near_);
  unlink(path_.c_str());
}

bool Pty::Open(const std::string& path, std::string& problem) {
  path_ = path;
  far_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  char name[128];
  if (far_ >= 0 && grantpt(far_) == 0 && unlockpt(far_) == 0 && ptsname_r(far_, name, sizeof name) == 0) {
    near_ = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  }
  if (near_ < 0) {
    problem = std::string("no pseudo-terminal for ") + path + ": " + strerror(errno);
    return false;
  }
  termios settings{};
  tcgetattr(near_, &settings);
  cfmakeraw(&settings);
  tcsetattr(near_, TCSANOW, &settings);

  unlink(path.c_str());
  if (symlink(name, path.c_str()) != 0) {
    problem = "cannot make " + path + ": " + strerror(errno);
    return false;
  }
  loop_.Watch(
      far_, [this] { Serve(); }, [this] { return !unsent_.empty(); });
  return true;
}

int Pty::TakeFarEnd() {
  loop_.Unwatch(far_);
  return far_;
}

void Pty::Send(const std::string& bytes) {
  if (unsent_.size() + bytes.size() > kMostUnsent) return;
  unsent_ += bytes;
  Flush();
}

void Pty::Flush() {
  while (!unsent_.empty()) {
    const ssize_t sent = write(far_, unsent_.data(), unsent_.size());
    if (sent <= 0) break;
    unsent_.erase(0, static_cast<size_t>(sent));
  }
}

void Pty::Serve() {
  Flush();
  std::string received;
  char chunk[4096];
  for (ssize_t size; (size = read(far_, chunk, sizeof chunk)) > 0;) received.append(chunk, static_cast<size_t>(size));
  if (!received.empty() && receiver_) receiver_(received);
}

}  // namespace desk
