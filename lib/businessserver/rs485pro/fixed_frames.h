// The two serial frames whose layout no configuration changes, as pure encoders: the number on a guidance display
// ("YB") and the state of one space for the relay controller ("SW"). The constants are for who reads them back.
#pragma once

#include <cstddef>
#include <cstdint>

#include "byte_writer.h"

namespace businessserver {

constexpr uint8_t kFixedFrameStart = 0xAA;

// AA, address, 17, number of digits, the digits, check byte.
constexpr uint8_t kDisplayCommand = 0x17;
constexpr size_t kDisplayHead = 4;     // bytes before the digits
constexpr size_t kDisplayDigits = 10;  // at most: those of a u32
constexpr size_t kDisplayFrameMax = kDisplayHead + kDisplayDigits + 1;

// AA, 04, address, 01 occupied or 02 free, XOR of these four, 55.
constexpr uint8_t kRelayCommand = 0x04;
constexpr uint8_t kRelayOccupied = 0x01;
constexpr uint8_t kRelayFree = 0x02;
constexpr uint8_t kRelayEnd = 0x55;
constexpr int kRelayCheckAt = 4;
constexpr size_t kRelayFrameSize = 6;

// 3 XOR every byte; 3 alone for a length below 1. The display protocol's check byte.
uint8_t YbCheckXor(const uint8_t* data, int length);

// The relay protocol's, over the bytes before it.
uint8_t RelayCheck(const uint8_t* frame);

// The display frame for a count of spaces (low byte of the address used).
void EncodeDisplayFrame(uint32_t value, uint32_t address, ByteWriter& out);

// The relay frame of one space (low byte of the address used).
void EncodeRelayFrame(uint32_t address, bool occupied, ByteWriter& out);

}  // namespace businessserver
