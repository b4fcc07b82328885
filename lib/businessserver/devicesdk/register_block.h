// The registers of the board that the drivers touch (where they are says the board's file), and the one way in which
// they touch them: 32-bit loads and stores through a mapping of the memory device, or on a copy in memory where there
// is nothing to map.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "board_registers.h"

namespace businessserver {

struct PhysicalBlock {
  off_t base;     // physical address
  size_t length;  // bytes
};

// Pin multiplexing: which controller a pin belongs to.
constexpr PhysicalBlock kPinMuxBlock = {board::kPinMuxBase, board::kPinMuxLength};
using board::kPinIsGpio;
using board::kPinIsSerial;
using board::kPinMuxOfBeaconPort;
using board::kPinMuxOfLeds;
using board::kPinMuxOfSerialPorts;

// The GPIO bank of the LEDs. A bank's data register is addressed through a bit mask; at this offset the mask lets all
// eight bits through.
constexpr PhysicalBlock kLedGpioBlock = {board::kLedGpioBase, board::kLedGpioLength};
using board::kGpioData;
using board::kGpioDirection;  // a 1 bit makes the pin an output
constexpr uint32_t kLedLine1 = 1u << 2;
constexpr uint32_t kLedLine2 = 1u << 3;
constexpr uint32_t kLedLine3 = 1u << 4;

template <size_t N>
constexpr bool AreRegistersOf(const PhysicalBlock& block, const size_t (&offsets)[N]) {
  for (size_t i = 0; i < N; ++i) {
    if (offsets[i] % sizeof(uint32_t) != 0 || offsets[i] + sizeof(uint32_t) > block.length) return false;
  }
  return true;
}
static_assert(AreRegistersOf(kPinMuxBlock, kPinMuxOfBeaconPort));
static_assert(AreRegistersOf(kPinMuxBlock, kPinMuxOfSerialPorts));
static_assert(AreRegistersOf(kPinMuxBlock, kPinMuxOfLeds));
static_assert(AreRegistersOf(kLedGpioBlock, {kGpioData, kGpioDirection}));
static_assert(kPinMuxBlock.base % 0x10000 == 0 && kLedGpioBlock.base % 0x10000 == 0, "mappings start at a page");
static_assert((kLedLine1 | kLedLine2 | kLedLine3) == 0x1C);

// Opens the memory device for register access: its descriptor, or -1.
int OpenMemoryDevice();

// A block of registers. Before the first Map it reads as 0 and ignores stores. Mappings last as long as the process.
class RegisterBlock {
 public:
  RegisterBlock() = default;
  RegisterBlock(const RegisterBlock&) = delete;
  RegisterBlock& operator=(const RegisterBlock&) = delete;

  // Maps the block through an open memory device; the descriptor may be closed afterwards. Mapping again replaces the
  // view. What cannot be mapped (no descriptor, or a file that ends before the block does) leaves the view there is;
  // where there is none, the block is held in memory from then on, all 0 at first.
  void Map(int memory_fd, const PhysicalBlock& block);

  // Offsets in bytes. Outside the block: 0, and no effect.
  uint32_t Read(size_t offset) const;
  void Write(size_t offset, uint32_t value);

  template <size_t N>
  void WriteEach(const size_t (&offsets)[N], uint32_t value) {
    for (const size_t offset : offsets) Write(offset, value);
  }

 private:
  bool IsInside(size_t offset) const;

  volatile uint32_t* registers_ = nullptr;
  size_t length_ = 0;
  std::vector<uint32_t> held_in_memory_;
};

}  // namespace businessserver
