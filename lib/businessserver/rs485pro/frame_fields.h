// The fields that a configurable serial frame can carry: one row each with its name in the configuration, the setter
// that takes its value and the handler that writes its bytes. A new field is one row and one function.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>

#include "protocol/parking_result.h"

namespace businessserver {

class Rs485ProBuild;

constexpr size_t kFrameCapacity = 1024;  // bytes of the frame buffer
constexpr size_t kFrameSlots = 20;       // entries that a field list may have
constexpr size_t kFixedTextRoom = 32;    // bytes kept for header and trailer each

// What the setters change; it outlives a change of the field list.
struct FrameSettings {
  uint32_t check_begin = 2;  // first frame offset that the check byte covers
  uint32_t check_end = 2;    // the configured end minus one: the first offset that it does not cover
  uint8_t trailer[kFixedTextRoom] = {};
  uint8_t header[kFixedTextRoom] = {};
  uint32_t check_type = 2;  // 0 XOR, 1 sum, anything else: no check byte
  uint32_t encode = 0;      // accepted and kept; no field uses it
};

// target is the FrameSettings to change. Negative: the value is refused. Json exceptions pass through.
using FieldSetter = int (*)(const Json::Value& value, void* target);

// Writes the field at out, which has room for the largest field, and returns the number of bytes written.
using FieldHandler = uint32_t (*)(const LX_ParkingResult* result, uint8_t* out, Rs485ProBuild* builder);

// With a handler alone, the configured value switches the field on (nonzero) or off. With both, the value goes to the
// setter and the field is always on. With a setter alone, nothing is written to the frame.
struct FrameField {
  const char* name;
  FieldSetter setter;
  FieldHandler handler;
};

// The row of a name, or null.
const FrameField* FindFrameField(const char* name);

// 1 when the first length bytes are all ASCII (or length < 1), else 0.
int RightFrameName(const char* name, int length);

}  // namespace businessserver
