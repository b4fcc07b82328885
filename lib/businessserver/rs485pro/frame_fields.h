// The fields that a configurable serial frame can carry: one row each with its name in the configuration, the setter
// that takes its value and the handler that writes its bytes. A new field is one row and one function.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <optional>

#include "byte_writer.h"
#include "protocol/parking_result.h"

namespace businessserver {

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

// Json exceptions pass through.
using FieldSetter = void (*)(const Json::Value& value, FrameSettings& settings);

// What goes into a frame.
struct FrameInput {
  const LX_ParkingResult& result;
  const FrameSettings& settings;
  uint32_t free_num;
  uint32_t frame_num;
};

// Writes the field behind what the frame has so far.
using FieldHandler = void (*)(const FrameInput& input, ByteWriter& frame);

// With a handler alone, the configured value switches the field on (nonzero) or off. With both, the value goes to the
// setter and the field is always on. With a setter alone, nothing is written to the frame.
struct FrameField {
  const char* name;
  FieldSetter setter;
  FieldHandler handler;
  size_t size;  // bytes that the handler writes; 0 where the result decides
};

// The row of a name, or null.
const FrameField* FindFrameField(const char* name);

// ---- for who reads frames back ----

constexpr uint8_t kPlateRead = 0xAA;
constexpr uint8_t kNoPlateRead = 0xBB;
constexpr uint8_t kOtherPlateColour = 4;
constexpr int32_t kPlateColours = 6;

// The line numbers plate colours in another order than the recognition process does.
uint8_t PlateColourOnLine(int32_t plate_color);

// Whether a plate field that begins at this offset of the frame begins within what the check byte covers.
bool IsChecked(const FrameSettings& settings, size_t plate_at);

// The check byte behind the first length bytes of a frame. None where the settings ask for none, or for bytes that are
// not there. With a longer plate among them it covers one byte more.
std::optional<uint8_t> CheckByte(const FrameSettings& settings, bool longer_plate, const uint8_t* frame, size_t length);

// 1 when the first length bytes are all ASCII (or length < 1), else 0.
int RightFrameName(const char* name, int length);

}  // namespace businessserver
