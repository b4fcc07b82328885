#include "rs485pro/fixed_frames.h"

namespace businessserver {

namespace {

constexpr uint8_t kStart = 0xAA;

constexpr uint8_t kDisplayCommand = 0x17;
constexpr uint8_t kDisplayCheckSeed = 0x03;

constexpr uint8_t kRelayLength = 0x04;
constexpr uint8_t kRelayOccupied = 0x01;
constexpr uint8_t kRelayFree = 0x02;
constexpr uint8_t kRelayEnd = 0x55;

// Kept: counted as a signed number, so that a count below zero shows one digit.
size_t DecimalDigits(int32_t value) {
  size_t digits = 1;
  for (; value < -9 || value > 9; value /= 10) ++digits;
  return digits;
}

}  // namespace

uint8_t YbCheckXor(const uint8_t* data, int length) {
  uint8_t check = kDisplayCheckSeed;
  for (int i = 0; i < length; ++i) check ^= data[i];
  return check;
}

size_t internal::WriteDisplayFrame(uint32_t value, uint32_t address, uint8_t* out) {
  constexpr size_t kHead = 4;
  const size_t digits = DecimalDigits(static_cast<int32_t>(value));
  out[0] = kStart;
  out[1] = static_cast<uint8_t>(address);
  out[2] = kDisplayCommand;
  out[3] = static_cast<uint8_t>(digits);
  for (size_t i = digits; i-- > 0; value /= 10) out[kHead + i] = static_cast<uint8_t>('0' + value % 10);
  out[kHead + digits] = YbCheckXor(out, static_cast<int>(kHead + digits));
  return kHead + digits + 1;
}

void EncodeRelayFrame(uint32_t address, bool occupied, uint8_t (&out)[kRelayFrameSize]) {
  out[0] = kStart;
  out[1] = kRelayLength;
  out[2] = static_cast<uint8_t>(address);
  out[3] = occupied ? kRelayOccupied : kRelayFree;
  out[4] = static_cast<uint8_t>(out[0] ^ out[1] ^ out[2] ^ out[3]);
  out[5] = kRelayEnd;
}

}  // namespace businessserver
