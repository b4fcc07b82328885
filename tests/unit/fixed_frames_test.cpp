#include "rs485pro/fixed_frames.h"

#include <gtest/gtest.h>

#include "hex_bytes.h"
#include "rs485pro/rs485pro.h"

namespace businessserver {
namespace {

TEST(FixedFrames, DisplayBytes) {
  // clang-format off
  const struct { uint32_t value, address; const char* bytes; } kRows[] = {
      {0,          1,      "AA 01 17 01 30 8E"},
      {10,         255,    "AA FF 17 02 31 30 42"},
      {123,        2,      "AA 02 17 03 31 32 33 8F"},
      {7,          0x1203, "AA 03 17 01 37 8B"},  // low byte of the address
      {2147483647, 1,      "AA 01 17 0A 32 31 34 37 34 38 33 36 34 37 BF"},
      {0xFFFFFFFF, 1,      "AA 01 17 01 35 8B"},  // counted as a number below zero: one digit
  };
  // clang-format on
  Rs485ProBuild builder;
  for (const auto& row : kRows) {
    unsigned length = 0;
    const uint8_t* frame = builder.GetYBRs485ProData(length, row.value, row.address);
    EXPECT_EQ(HexBytes(frame, length), row.bytes) << row.value;
  }
  EXPECT_EQ(Rs485ProBuild::YbCheckXor(nullptr, -1), 3);
}

TEST(FixedFrames, RelayBytes) {
  uint8_t bytes[2 * kRelayFrameSize];
  ByteWriter frames(bytes);
  EncodeRelayFrame(5, true, frames);
  EncodeRelayFrame(0x105, false, frames);
  EXPECT_EQ(HexBytes(bytes, frames.size()), "AA 04 05 01 AA 55 AA 04 05 02 A9 55");
}

}  // namespace
}  // namespace businessserver
