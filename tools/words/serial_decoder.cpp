#include "serial_decoder.h"

#include "configurable_frame.h"
#include "plain_words.h"
#include "rs485pro/fixed_frames.h"

namespace words {

namespace bs = businessserver;

namespace {

DecodedFrame Unknown(const std::string& problem, size_t size = 1) {
  DecodedFrame frame;
  frame.size = size;
  frame.problem = problem;
  return frame;
}

std::string WrongCheck(const char* frame, uint8_t found, uint8_t expected) {
  return std::string(frame) + " frame: check byte is " + HexText(&found, 1) + ", the frame's bytes give " +
         HexText(&expected, 1);
}

std::string CutShort(const char* frame, size_t size, size_t whole) {
  return std::string(frame) + " frame cut short, " + std::to_string(size) + " of " + std::to_string(whole) + " bytes";
}

bool LooksLikeDisplay(const uint8_t* bytes, size_t size) {
  return size >= 3 && bytes[0] == bs::kFixedFrameStart && bytes[2] == bs::kDisplayCommand;
}

bool LooksLikeRelay(const uint8_t* bytes, size_t size) {
  return size >= 2 && bytes[0] == bs::kFixedFrameStart && bytes[1] == bs::kRelayCommand;
}

DecodedFrame DecodeDisplay(const uint8_t* bytes, size_t size) {
  if (size < bs::kDisplayHead) return Unknown(CutShort("display", size, bs::kDisplayHead + 2));
  const size_t digits = bytes[3];
  if (digits < 1 || digits > bs::kDisplayDigits) {
    return Unknown("display frame: it cannot have " + std::to_string(digits) + " digits");
  }
  const size_t check_at = bs::kDisplayHead + digits;
  if (size <= check_at) return Unknown(CutShort("display", size, check_at + 1));
  for (size_t i = bs::kDisplayHead; i < check_at; ++i) {
    if (bytes[i] < '0' || bytes[i] > '9') return Unknown("display frame: " + HexText(bytes + i, 1) + " is no digit");
  }
  const uint8_t expected = bs::YbCheckXor(bytes, static_cast<int>(check_at));
  if (bytes[check_at] != expected) return Unknown(WrongCheck("display", bytes[check_at], expected), check_at + 1);

  DecodedFrame frame;
  frame.kind = FrameKind::kDisplay;
  frame.size = check_at + 1;
  const char* value = reinterpret_cast<const char*>(bytes + bs::kDisplayHead);
  frame.fields = {{"address", std::to_string(bytes[1]), 1, 1},
                  {"value", std::string(value, digits), bs::kDisplayHead, digits},
                  {"check", HexText(&expected, 1), check_at, 1}};
  return frame;
}

DecodedFrame DecodeRelay(const uint8_t* bytes, size_t size) {
  if (size < bs::kRelayFrameSize) return Unknown(CutShort("relay", size, bs::kRelayFrameSize));
  const uint8_t state = bytes[3];
  if (state != bs::kRelayOccupied && state != bs::kRelayFree) {
    return Unknown("relay frame: state " + HexText(&state, 1) + " is neither 01 occupied nor 02 free");
  }
  if (bytes[5] != bs::kRelayEnd) return Unknown("relay frame: it ends in " + HexText(bytes + 5, 1) + ", not 55");
  const uint8_t expected = bs::RelayCheck(bytes);
  if (bytes[4] != expected) return Unknown(WrongCheck("relay", bytes[4], expected), bs::kRelayFrameSize);

  DecodedFrame frame;
  frame.kind = FrameKind::kRelay;
  frame.size = bs::kRelayFrameSize;
  frame.fields = {{"address", std::to_string(bytes[2]), 2, 1},
                  {"state", state == bs::kRelayOccupied ? "occupied" : "free", 3, 1},
                  {"check", HexText(&expected, 1), 4, 1}};
  return frame;
}

DecodedFrame Decode(const uint8_t* bytes, size_t size, const FieldList& list) {
  if (size == 0) return Unknown("no bytes");
  // The fixed frames first: they prove themselves by their check bytes, while a field list may fit almost anything.
  DecodedFrame fixed;
  if (LooksLikeRelay(bytes, size)) fixed = DecodeRelay(bytes, size);
  if (fixed.kind == FrameKind::kUnknown && LooksLikeDisplay(bytes, size)) fixed = DecodeDisplay(bytes, size);
  if (fixed.kind != FrameKind::kUnknown) return fixed;
  DecodedFrame configurable = DecodeConfigurable(bytes, size, list);
  if (configurable.kind != FrameKind::kUnknown) return configurable;
  return fixed.problem.empty() || BeginsWithHeader(bytes, size, list) ? configurable : fixed;
}

std::string Quoted(const std::string& value) {
  return value.find(' ') == std::string::npos ? value : '"' + value + '"';
}

}  // namespace

std::string DecodedFrame::Text() const {
  switch (kind) {
    case FrameKind::kDisplay:
      return "display " + fields[0].value + " shows " + fields[1].value;
    case FrameKind::kRelay:
      return "relay " + fields[0].value + " is told " + fields[1].value;
    case FrameKind::kUnknown:
      return "not decoded: " + problem;
    case FrameKind::kConfigurable:
      break;
  }
  std::string text = "frame";
  for (const DecodedField& field : fields) {
    if (field.name == "header" || field.name == "end") continue;
    text += ' ' + field.name + '=' + Quoted(field.value);
  }
  return text;
}

DecodedFrame DecodeFrame(const uint8_t* bytes, size_t size, const Json::Value& field_list) {
  return Decode(bytes, size, ReadFieldList(field_list));
}

std::vector<DecodedFrame> DecodeBurst(const uint8_t* bytes, size_t size, const Json::Value& field_list) {
  return DecodeBurst(bytes, size, ReadFieldList(field_list));
}

std::vector<DecodedFrame> DecodeBurst(const uint8_t* bytes, size_t size, const FieldList& list) {
  std::vector<DecodedFrame> frames;
  for (size_t at = 0; at < size;) {
    DecodedFrame frame = Decode(bytes + at, size - at, list);
    at += frame.size;
    if (frame.kind == FrameKind::kUnknown && !frames.empty() && frames.back().kind == FrameKind::kUnknown) {
      frames.back().size += frame.size;
    } else {
      frames.push_back(frame);
    }
  }
  return frames;
}

}  // namespace words
