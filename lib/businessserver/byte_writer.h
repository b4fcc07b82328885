// Bytes written one behind the other into room that is the caller's, and never past its end: what does not fit is left
// out, which is a fault of ours.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "assertion.h"

namespace businessserver {

class ByteWriter {
 public:
  ByteWriter(void* begin, size_t room) : begin_(static_cast<uint8_t*>(begin)), room_(room) {}
  template <size_t Room>
  explicit ByteWriter(uint8_t (&out)[Room]) : ByteWriter(out, Room) {}

  void Byte(uint8_t byte) { Bytes(&byte, 1); }

  // The low byte of a number.
  template <typename Integer>
  void LowByte(Integer value) {
    Byte(static_cast<uint8_t>(value));
  }

  // Four bytes, the low one first.
  void U32(uint32_t value) {
    const uint8_t bytes[] = {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8),
                             static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 24)};
    Bytes(bytes, sizeof bytes);
  }

  void Bytes(const void* bytes, size_t count) {
    BS_ASSERT(count <= room_ - size_);
    if (count > room_ - size_) return;
    if (count > 0) memcpy(begin_ + size_, bytes, count);
    size_ += count;
  }
  void Text(std::string_view text) { Bytes(text.data(), text.size()); }

  // What is written so far.
  const uint8_t* begin() const { return begin_; }
  const uint8_t* end() const { return begin_ + size_; }
  size_t size() const { return size_; }
  size_t room() const { return room_; }  // in all

 private:
  uint8_t* begin_;
  size_t room_;
  size_t size_ = 0;
};

}  // namespace businessserver
