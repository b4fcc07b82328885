// The frame whose fields a configuration lists, read back. Two things are not told by the bytes themselves: whether
// the sender left the space's name out, and whether the plate was of the long type; all readings are tried.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "rs485pro/frame_fields.h"
#include "serial_decoder.h"

namespace words {

struct FieldList {
  std::vector<const businessserver::FrameField*> fields;  // those that put bytes into the frame, in frame order
  businessserver::FrameSettings settings;
  std::string problem;  // not empty: the device would refuse this list, and why
};

// The device keeps what earlier lists set, until it starts anew: kept, where that is known.
FieldList ReadFieldList(const Json::Value& document, const businessserver::FrameSettings& kept = {});

// As DecodeBurst of a document, for a list that was read before.
std::vector<DecodedFrame> DecodeBurst(const uint8_t* bytes, size_t size, const FieldList& list);

// The frame at the head of the bytes. When it does not fit, kind is kUnknown and size is 1, or the whole frame's when
// only its check byte is wrong.
DecodedFrame DecodeConfigurable(const uint8_t* bytes, size_t size, const FieldList& list);

// Whether the bytes begin with the list's header (and it has one).
bool BeginsWithHeader(const uint8_t* bytes, size_t size, const FieldList& list);

}  // namespace words
