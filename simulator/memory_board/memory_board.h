// A board in memory: serial ports, registers and clock of a device whose drivers run in this process. The linker puts
// calls.cpp in the place of the system calls that the drivers make (board_in_memory() in CMake), so that the drivers
// are the real ones.
#pragma once

#include <sys/types.h>

#include <array>
#include <ctime>
#include <functional>
#include <map>
#include <string_view>
#include <vector>

#include "memory_board/line.h"

namespace memory_board {

class MemoryBoard {
 public:
  virtual ~MemoryBoard() = default;

  // The board whose drivers run now, null for none.
  static MemoryBoard* Current();
  static void MakeCurrent(MemoryBoard* board);

  Line& line(int number) { return lines_.at(static_cast<size_t>(number - 1)); }
  void* Registers(off_t block, size_t length);

  // ---- the driver's time ----
  virtual Micros Now() const = 0;
  virtual void PassUntil(Micros when) = 0;
  virtual time_t WallClock() const = 0;

  // The driver is about to write; may throw, and then nothing was written.
  virtual void OnWrite(int line, std::string_view bytes) = 0;

 private:
  std::array<Line, 2> lines_;
  std::map<off_t, std::vector<uint32_t>> registers_;
};

}  // namespace memory_board
