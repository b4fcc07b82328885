#include "serial_lines.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <iterator>

namespace bench {

SerialLines::SerialLines(int beacon, int external)
    : beacon_(beacon), external_(external), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), thread_([this] { Run(); }) {}

SerialLines::~SerialLines() {
  stop_ = true;
  eventfd_write(wake_, 1);
  thread_.join();
}

void SerialLines::TakeExternal() {
  taken_ = true;
  eventfd_write(wake_, 1);
  while (!let_go_) std::this_thread::yield();
  ReadExternal();
}

void SerialLines::GiveBackExternal() {
  taken_ = false;
  eventfd_write(wake_, 1);
}

size_t SerialLines::ReadExternal() const {
  char bytes[4096];
  const ssize_t count = read(external_, bytes, sizeof bytes);
  return count > 0 ? static_cast<size_t>(count) : 0;
}

void SerialLines::Run() {
  constexpr char kAccepted[] = "MTD:OK\r\n";
  while (!stop_) {
    let_go_ = taken_.load();
    pollfd ready[] = {{wake_, POLLIN, 0}, {beacon_, POLLIN, 0}, {let_go_ ? -1 : external_, POLLIN, 0}};
    if (poll(ready, std::size(ready), -1) <= 0) continue;
    eventfd_t count;
    eventfd_read(wake_, &count);
    char bytes[4096];
    if (ready[1].revents != 0 && read(beacon_, bytes, sizeof bytes) > 0) {
      static_cast<void>(write(beacon_, kAccepted, strlen(kAccepted)) + 0);
    }
    if (ready[2].revents != 0) ReadExternal();
  }
}

}  // namespace bench
