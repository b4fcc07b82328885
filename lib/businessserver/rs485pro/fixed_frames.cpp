#include "rs485pro/fixed_frames.h"

namespace businessserver {

namespace {

constexpr uint8_t kDisplayCheckSeed = 0x03;

uint8_t Xor(uint8_t check, const uint8_t* data, int length) {
  for (int i = 0; i < length; ++i) check ^= data[i];
  return check;
}

// Kept: counted as a signed number, so that a count below zero shows one digit.
size_t DecimalDigits(int32_t value) {
  size_t digits = 1;
  for (; value < -9 || value > 9; value /= 10) ++digits;
  return digits;
}

}  // namespace

uint8_t YbCheckXor(const uint8_t* data, int length) { return Xor(kDisplayCheckSeed, data, length); }

uint8_t RelayCheck(const uint8_t* frame) { return Xor(0, frame, kRelayCheckAt); }

void EncodeDisplayFrame(uint32_t value, uint32_t address, ByteWriter& out) {
  char digits[kDisplayDigits];
  const size_t count = DecimalDigits(static_cast<int32_t>(value));
  for (size_t i = count; i-- > 0; value /= 10) digits[i] = static_cast<char>('0' + value % 10);

  const uint8_t* const frame = out.end();
  out.Byte(kFixedFrameStart);
  out.LowByte(address);
  out.Byte(kDisplayCommand);
  out.LowByte(count);
  out.Bytes(digits, count);
  out.Byte(YbCheckXor(frame, static_cast<int>(out.end() - frame)));
}

void EncodeRelayFrame(uint32_t address, bool occupied, ByteWriter& out) {
  const uint8_t* const frame = out.end();
  out.Byte(kFixedFrameStart);
  out.Byte(kRelayCommand);
  out.LowByte(address);
  out.Byte(occupied ? kRelayOccupied : kRelayFree);
  out.Byte(RelayCheck(frame));
  out.Byte(kRelayEnd);
}

}  // namespace businessserver
