// What a byte string on the external line says: the configurable frame by its field list, the display frame, the
// relay frame; and what a line of the beacon link says. For people: texts are UTF-8.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace words {

enum class FrameKind { kConfigurable, kDisplay, kRelay, kUnknown };

struct DecodedField {
  std::string name;   // the field list's own name, or "address", "value", "state", "check"
  std::string value;  // as people read it: "京A12345", "occupied", "3"
  size_t offset = 0;  // where its bytes are, from the frame's first
  size_t size = 0;    // 0: a name that the sender had to leave out
};

struct DecodedFrame {
  FrameKind kind = FrameKind::kUnknown;
  size_t size = 0;  // bytes that this frame takes up, at least 1
  std::vector<DecodedField> fields;
  std::string problem;  // kUnknown: why nothing could be made of the bytes; fields: what could be read up to there

  // One line, e.g. "frame enable=plate license=京A12345 framestatus=occupied freenum=2 ..." or "display 2 shows 17".
  std::string Text() const;
};

// Decodes the frame at the head of the bytes. field_list is the document of "rs485pro_value" ({"pro_cfg": [...]}).
// Never throws, whatever the document holds.
DecodedFrame DecodeFrame(const uint8_t* bytes, size_t size, const Json::Value& field_list);

// All frames of a burst, one after another; a stretch that fits nothing becomes one kUnknown frame.
std::vector<DecodedFrame> DecodeBurst(const uint8_t* bytes, size_t size, const Json::Value& field_list);

// What a beacon command or reply says, e.g. "set major 0x0065 (101)"; empty when it is none.
std::string DescribeBeaconLine(const std::string& line);

}  // namespace words
