#include "devicesdk/tty_io.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <new>

#include "board_paths.h"
#include "log.h"
#include "shell.h"
#include "watchdog.h"

namespace businessserver {
namespace {

constexpr char kLogSource[] = "lib/businessserver/devicesdk/tty_io";
constexpr unsigned kGapMicroseconds = 30000;
constexpr int kSpaceParity = 115;      // 's'
constexpr int kHungUpBaudrate = 9600;  // what the controllers do at speed 0

struct Speed {
  int baudrate;
  tcflag_t code;
};
constexpr Speed kSpeeds[] = {
    {300, B300},   {1200, B1200},   {2400, B2400},   {4800, B4800},
    {9600, B9600}, {19200, B19200}, {38400, B38400}, {115200, B115200},
};
static_assert((B115200 & ~CBAUD) == 0, "the speed travels in the control flags");

class ScopedLock {
 public:
  explicit ScopedLock(pthread_mutex_t& lock) : lock_(lock) { pthread_mutex_lock(&lock_); }
  ~ScopedLock() { pthread_mutex_unlock(&lock_); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  pthread_mutex_t& lock_;
};

tcflag_t SpeedCode(int baudrate) {
  for (const Speed& speed : kSpeeds) {
    if (speed.baudrate == baudrate) return speed.code;
  }
  return B0;  // Kept: a stored speed that is not listed stops the line and is no error.
}

bool SetDataBits(int databits, termios& settings) {
  if (databits != 7 && databits != 8) return false;
  settings.c_cflag = CREAD | CLOCAL | (databits == 7 ? CS7 : CS8);
  return true;
}

bool SetParityCode(int parity, termios& settings) {
  switch (parity) {
    case 0:
    case kSpaceParity:
      return true;
    case 1:
      settings.c_cflag |= PARENB | PARODD;
      return true;
    case 2:
      settings.c_cflag |= PARENB;
      return true;
    default:
      return false;
  }
}

bool SetStopBits(int stopbits, termios& settings) {
  if (stopbits != 1 && stopbits != 2) return false;
  if (stopbits == 2) settings.c_cflag |= CSTOPB;
  return true;
}

const char* Refusal(int code) {
  switch (code) {
    case kTtyBadDataBits:
      return "Unsupported data size";
    case kTtyBadParity:
      return "Unsupported parity";
    default:
      return "Unsupported stop bits";
  }
}

}  // namespace

int BuildLineSettings(int databits, int parity, int stopbits, int baudrate, termios& settings) {
  settings = {};  // raw: no canonical mode, no echo, no signals, nothing done to the output
  // Kept: with parity, too, the input is not checked, so devices that send without it are still heard.
  settings.c_iflag = IGNPAR;
  if (!SetDataBits(databits, settings)) return kTtyBadDataBits;
  if (!SetParityCode(parity, settings)) return kTtyBadParity;
  if (!SetStopBits(stopbits, settings)) return kTtyBadStopBits;
  settings.c_cflag |= SpeedCode(baudrate);  // and not in the speed fields
  settings.c_cc[VTIME] = 0;
  settings.c_cc[VMIN] = 1;
  return kTtyOk;
}

TtyioControl::~TtyioControl() { BS_LOG(kLifecycle) << "~TtyioControl"; }

int TtyioControl::TTY_Ready(TTY_DEV_ID id) {
  TTY_Clean();
  // Kept: opened twice, the first descriptor staying open for as long as the process runs.
  static_cast<void>(OpenMemoryDevice());
  memory_fd_ = OpenMemoryDevice();
  pin_mux_.Map(memory_fd_, kPinMuxBlock);
  pin_mux_.WriteEach(kPinMuxOfSerialPorts, kPinIsSerial);  // whichever port is opened

  port_.reset(new (std::nothrow) TTY_INFO());
  if (port_ == nullptr) {
    BS_LOG(kError) << "TTY_Ready malloc error!!";
    return 0;
  }
  port_->device_number = id;
  pthread_mutex_init(&port_->lock, nullptr);
  snprintf(port_->device_path, sizeof port_->device_path, board::kSerialDeviceFormat, static_cast<int>(id));
  device_path_ = port_->device_path;
  BS_LOG(kInfo) << "DEV = " << device_path_;

  // Close-on-exec: programs that the server starts must not hold the line open.
  port_->fd = open(port_->device_path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (port_->fd < 0) {
    BS_LOG(kError) << "Failed to open TTY FD " << port_->device_path;
    TTY_Clean();
    return 0;
  }
  tcgetattr(port_->fd, &port_->saved);
  return 1;
}

int TtyioControl::TTY_SetParity(int databits, int parity, int stopbits, int baudrate) {
  if (!IsOpen() || tcgetattr(port_->fd, &port_->current) != 0) {
    BS_LOG(kInfo) << "SetupSerial " << device_path_;
    return kTtyUnreadable;
  }
  const int code = BuildLineSettings(databits, parity, stopbits, baudrate, port_->current);
  if (code != kTtyOk) {
    BS_LOG(kError) << Refusal(code);
    return code;
  }
  tcflush(port_->fd, TCIFLUSH);
  if (tcsetattr(port_->fd, TCSANOW, &port_->current) != 0) {
    BS_LOG(kInfo) << "SetupSerial";
    return kTtyNotApplied;
  }
  return kTtyOk;
}

int TtyioControl::QueuedBytes() const {
  int queued = 0;
  return ioctl(port_->fd, FIONREAD, &queued) == 0 ? queued : 0;
}

int TtyioControl::TTY_Recvn(char* buf, int len) {
  if (!IsOpen() || buf == nullptr || len < 1) return 0;
  int stored = 0;
  while (true) {
    {
      const ScopedLock lock(port_->lock);
      if (QueuedBytes() < 1) return stored;
      const ssize_t got = read(port_->fd, buf + stored, static_cast<size_t>(len - stored));
      if (got > 0) stored += static_cast<int>(got);
    }
    ReportProgress();
    if (stored == len) return stored;
    SleepMicroseconds(kGapMicroseconds);
  }
}

int TtyioControl::TTY_RecvNB(char* buf, int len) {
  if (!IsOpen() || buf == nullptr || len < 1) return 0;
  int queued = QueuedBytes();
  if (queued < 1) return 0;
  while (queued > len) {
    const ssize_t dropped = read(port_->fd, buf, static_cast<size_t>(std::min(queued - len, len)));
    if (dropped < 1) break;
    queued -= static_cast<int>(dropped);
  }
  const int count = static_cast<int>(read(port_->fd, buf, static_cast<size_t>(len)));
  BS_LOG(kInfo) << "Read bytes : " << count;
  return count;
}

int TtyioControl::TTY_SendnNB(const char* buf, int len) {
  int sent = 0;
  if (IsOpen() && buf != nullptr) {
    // Kept: tries again at once and without end. The result says that every byte is on its way.
    while (sent < len) {
      const ScopedLock lock(port_->lock);
      const ssize_t accepted = write(port_->fd, buf + sent, static_cast<size_t>(len - sent));
      if (accepted <= 0) continue;
      sent += static_cast<int>(accepted);
      ReportProgress();  // only then: a line that takes nothing is the supervisor's business
    }
  }
  BS_LOG(kInfo) << "SEND bytes : " << sent;
  return sent;
}

int TtyioControl::TTY_Sendn(const char* buf, int len) {
  if (IsOpen()) tcflush(port_->fd, TCIFLUSH);
  const int sent = TTY_SendnNB(buf, len);
  if (IsOpen()) tcdrain(port_->fd);
  ReportProgress();
  return sent;
}

int64_t TtyioControl::TTY_SendTime(int len) const {
  if (!IsOpen()) return 0;
  termios settings = {};
  if (tcgetattr(port_->fd, &settings) != 0) return 0;
  const tcflag_t flags = settings.c_cflag;
  int baudrate = kHungUpBaudrate;
  for (const Speed& speed : kSpeeds) {
    if (speed.code == (flags & CBAUD)) baudrate = speed.baudrate;
  }
  const int bits = 1 + ((flags & CSIZE) == CS7 ? 7 : 8) + ((flags & PARENB) != 0) + ((flags & CSTOPB) != 0 ? 2 : 1);
  return int64_t{1000} * len * bits / baudrate;
}

int TtyioControl::TTY_Lock() { return IsOpen() ? flock(port_->fd, LOCK_EX) : 1; }

int TtyioControl::TTY_Unlock() { return IsOpen() ? flock(port_->fd, LOCK_UN) : 1; }

void TtyioControl::TTY_SetSendRecvType(TTY_SRTYPE) {}

void TtyioControl::TTY_Clean() {
  if (port_ == nullptr) return;
  if (port_->fd > 0) {  // 0 counts as not open: that is the process's standard input
    tcsetattr(port_->fd, TCSANOW, &port_->saved);
    close(port_->fd);
    port_->fd = -1;
  }
  if (port_->second_fd > 0) {
    close(port_->second_fd);
    port_->second_fd = -1;
  }
  pthread_mutex_destroy(&port_->lock);
  port_.reset();
}

}  // namespace businessserver
