// The system calls with which the daemon touches its board and asks for the time: the linker puts these in their place
// (--wrap), so that a played device has its ports, registers and clock in memory. Descriptors count from kFirst, far
// from those of the process; anything else goes to the system.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <string_view>

#include "board_paths.h"
#include "years/daemon.h"
#include "years/device.h"

namespace board {
const char kMemoryDevice[] = "/years/mem";
const char kSerialDeviceFormat[] = "/years/tty%d";
}  // namespace board

namespace years {
namespace {

constexpr int kFirst = 1 << 20;
constexpr int kMemory = kFirst;
constexpr std::string_view kTtyPath = "/years/tty";

bool IsPort(int fd) { return fd > kFirst; }

Line& PortOf(int fd) { return Daemon::Current()->device().line(fd - kFirst); }

int Open(const char* path) {
  if (path == std::string_view(board::kMemoryDevice)) return kMemory;
  return kFirst + (path[kTtyPath.size()] - '0');
}

bool IsOurs(const char* path) {
  return Daemon::Current() != nullptr && std::string_view(path).substr(0, 7) == "/years/";
}

}  // namespace
}  // namespace years

using years::Daemon;
using years::IsPort;
using years::kFirst;
using years::PortOf;

extern "C" {

int __real_open64(const char* path, int flags, ...);
int __real_close(int fd);
ssize_t __real_read(int fd, void* buffer, size_t size);
ssize_t __real_write(int fd, const void* buffer, size_t size);
int __real_ioctl(int fd, unsigned long request, ...);
int __real_fstat64(int fd, struct stat* status);
void* __real_mmap64(void* address, size_t length, int protection, int flags, int fd, off_t offset);
time_t __real_time(time_t* out);

int __wrap_open64(const char* path, int flags, ...) {
  if (years::IsOurs(path)) return years::Open(path);
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return __real_open64(path, flags, mode);
}

int __wrap_close(int fd) { return fd >= kFirst ? 0 : __real_close(fd); }

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
  if (!IsPort(fd)) return __real_read(fd, buffer, size);
  const std::string bytes = PortOf(fd).Read(size, Daemon::Current()->now());
  if (bytes.empty()) {
    errno = EAGAIN;
    return -1;
  }
  memcpy(buffer, bytes.data(), bytes.size());
  return static_cast<ssize_t>(bytes.size());
}

ssize_t __wrap_write(int fd, const void* buffer, size_t size) {
  if (!IsPort(fd)) return __real_write(fd, buffer, size);
  Daemon& daemon = *Daemon::Current();
  if (daemon.dying()) return static_cast<ssize_t>(size);
  daemon.Call();
  if (!PortOf(fd).TakesBytes(daemon.now())) {
    daemon.Sleep(years::kMillisecond);
    errno = EAGAIN;
    return -1;
  }
  daemon.device().WrittenToLine(fd - kFirst, {static_cast<const char*>(buffer), size}, daemon.now());
  return static_cast<ssize_t>(size);
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (!IsPort(fd)) return __real_ioctl(fd, request, argument);
  const Daemon& daemon = *Daemon::Current();
  if (request == FIONREAD) {
    *static_cast<int*>(argument) = PortOf(fd).Queued(daemon.now());
  } else {
    *static_cast<int*>(argument) = static_cast<int>(PortOf(fd).Unsent(daemon.now()));  // TIOCOUTQ
  }
  return 0;
}

int __wrap_tcgetattr(int fd, termios* settings) {
  *settings = PortOf(fd).settings;
  return 0;
}

int __wrap_tcsetattr(int fd, int, const termios* settings) {
  PortOf(fd).settings = *settings;
  return 0;
}

int __wrap_tcflush(int fd, int) {
  PortOf(fd).DropInput(Daemon::Current()->now());
  return 0;
}

int __wrap_tcdrain(int fd) {
  Daemon::Current()->SleepUntil(PortOf(fd).drained_at());
  return 0;
}

int __wrap_fstat64(int fd, struct stat* status) {
  if (fd < kFirst) return __real_fstat64(fd, status);
  *status = {};
  status->st_mode = S_IFCHR;
  return 0;
}

void* __wrap_mmap64(void* address, size_t length, int protection, int flags, int fd, off_t offset) {
  if (fd < kFirst) return __real_mmap64(address, length, protection, flags, fd, offset);
  return Daemon::Current()->device().Registers(offset, length);
}

time_t __wrap_time(time_t* out) {
  if (Daemon::Current() == nullptr) return __real_time(out);
  const time_t now = Daemon::Current()->device().WallClock();
  if (out != nullptr) *out = now;
  return now;
}

}  // extern "C"
