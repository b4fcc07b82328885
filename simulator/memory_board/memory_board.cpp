#include "memory_board/memory_board.h"

namespace memory_board {
namespace {

MemoryBoard* current = nullptr;

}  // namespace

MemoryBoard* MemoryBoard::Current() { return current; }
void MemoryBoard::MakeCurrent(MemoryBoard* board) { current = board; }

void* MemoryBoard::Registers(off_t block, size_t length) {
  std::vector<uint32_t>& registers = registers_[block];
  if (registers.empty()) registers.resize(length / sizeof(uint32_t));
  return registers.data();
}

}  // namespace memory_board
