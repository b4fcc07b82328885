// The system calls with which drivers touch a board and ask for the time, for a board in memory. Descriptors count from
// kFirst, far from those of the process; anything else goes to the system.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include "board_paths.h"
#include "memory_board/memory_board.h"

namespace {

using memory_board::Line;
using memory_board::MemoryBoard;

constexpr int kFirst = 1 << 20;
constexpr int kMemory = kFirst;  // and the ports behind it
constexpr int kPorts = 9;
constexpr memory_board::Micros kWritePause = memory_board::kMillisecond;

bool IsPort(int fd) { return fd > kFirst; }

MemoryBoard& Board() { return *MemoryBoard::Current(); }
Line& PortOf(int fd) { return Board().line(fd - kFirst); }

// -1 for what is none of the board's.
int Open(const char* path) {
  if (MemoryBoard::Current() == nullptr) return -1;
  if (strcmp(path, board::kMemoryDevice) == 0) return kMemory;
  for (int number = 1; number <= kPorts; ++number) {
    char port[64];
    snprintf(port, sizeof port, board::kSerialDeviceFormat, number);
    if (strcmp(path, port) == 0) return kFirst + number;
  }
  return -1;
}

}  // namespace

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
  if (const int fd = Open(path); fd >= 0) return fd;
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return __real_open64(path, flags, mode);
}

int __wrap_close(int fd) { return fd >= kFirst ? 0 : __real_close(fd); }

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
  if (!IsPort(fd)) return __real_read(fd, buffer, size);
  const std::string bytes = PortOf(fd).Read(size, Board().Now());
  if (bytes.empty()) {
    errno = EAGAIN;
    return -1;
  }
  memcpy(buffer, bytes.data(), bytes.size());
  return static_cast<ssize_t>(bytes.size());
}

ssize_t __wrap_write(int fd, const void* buffer, size_t size) {
  if (!IsPort(fd)) return __real_write(fd, buffer, size);
  const std::string_view bytes(static_cast<const char*>(buffer), size);
  Board().OnWrite(fd - kFirst, bytes);
  if (!PortOf(fd).TakesBytes(Board().Now())) {
    Board().PassUntil(Board().Now() + kWritePause);
    errno = EAGAIN;
    return -1;
  }
  PortOf(fd).Write(bytes, Board().Now());
  return static_cast<ssize_t>(size);
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (!IsPort(fd)) return __real_ioctl(fd, request, argument);
  if (request == FIONREAD) {
    *static_cast<int*>(argument) = PortOf(fd).Queued(Board().Now());
  } else {
    *static_cast<int*>(argument) = static_cast<int>(PortOf(fd).Unsent(Board().Now()));  // TIOCOUTQ
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
  PortOf(fd).DropInput(Board().Now());
  return 0;
}

int __wrap_tcdrain(int fd) {
  Board().PassUntil(PortOf(fd).drained_at());
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
  return Board().Registers(offset, length);
}

time_t __wrap_time(time_t* out) {
  if (MemoryBoard::Current() == nullptr) return __real_time(out);
  const time_t now = Board().WallClock();
  if (out != nullptr) *out = now;
  return now;
}

}  // extern "C"
