// The two serial frames whose layout no configuration changes, as pure encoders: the number on a guidance display
// ("YB") and the state of one space for the relay controller ("SW").
#pragma once

#include <cstddef>
#include <cstdint>

namespace businessserver {

// AA, address, 17, number of digits, the digits, check byte.
constexpr size_t kDisplayFrameMax = 4 + 10 + 1;  // a u32 has at most ten digits

// AA, 04, address, 01 occupied or 02 free, XOR of these four, 55.
constexpr size_t kRelayFrameSize = 6;

// 3 XOR every byte; 3 alone for a length below 1. The display protocol's check byte.
uint8_t YbCheckXor(const uint8_t* data, int length);

namespace internal {
size_t WriteDisplayFrame(uint32_t value, uint32_t address, uint8_t* out);
}  // namespace internal

// The display frame for a count of spaces (low byte of the address used). Returns its length in bytes.
template <size_t Room>
size_t EncodeDisplayFrame(uint32_t value, uint32_t address, uint8_t (&out)[Room]) {
  static_assert(Room >= kDisplayFrameMax, "no room for ten digits");
  return internal::WriteDisplayFrame(value, address, out);
}

// The relay frame of one space (low byte of the address used).
void EncodeRelayFrame(uint32_t address, bool occupied, uint8_t (&out)[kRelayFrameSize]);

}  // namespace businessserver
