#include "devicesdk/register_block.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "board_paths.h"

namespace businessserver {
namespace {

// Touching a mapping beyond the end of a regular file raises SIGBUS.
bool EndsBefore(int fd, const PhysicalBlock& block) {
  struct stat status = {};
  if (fstat(fd, &status) != 0) return true;
  return S_ISREG(status.st_mode) && status.st_size < block.base + static_cast<off_t>(block.length);
}

}  // namespace

int OpenMemoryDevice() {
  // Close-on-exec: programs that the server starts have no business with the registers.
  return open(board::kMemoryDevice, O_RDWR | O_SYNC | O_CLOEXEC);
}

void RegisterBlock::Map(int memory_fd, const PhysicalBlock& block) {
  void* view = MAP_FAILED;
  if (memory_fd >= 0 && !EndsBefore(memory_fd, block)) {
    view = mmap(nullptr, block.length, PROT_READ | PROT_WRITE, MAP_SHARED, memory_fd, block.base);
  }
  if (view != MAP_FAILED) {
    registers_ = static_cast<volatile uint32_t*>(view);
    length_ = block.length;
  } else if (registers_ == nullptr) {
    held_in_memory_.assign(block.length / sizeof(uint32_t), 0);
    registers_ = held_in_memory_.data();
    length_ = block.length;
  }
}

bool RegisterBlock::IsInside(size_t offset) const {
  return offset % sizeof(uint32_t) == 0 && offset < length_ && length_ - offset >= sizeof(uint32_t);
}

uint32_t RegisterBlock::Read(size_t offset) const {
  return IsInside(offset) ? registers_[offset / sizeof(uint32_t)] : 0;
}

void RegisterBlock::Write(size_t offset, uint32_t value) {
  if (IsInside(offset)) registers_[offset / sizeof(uint32_t)] = value;
}

}  // namespace businessserver
