#include "configurable_frame.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <optional>
#include <string_view>

#include "plain_words.h"
#include "protocol/names.h"
#include "protocol/parking_result.h"
#include "rs485pro/plate_code.h"

namespace words {

namespace bs = businessserver;

using businessserver::FrameField;
using businessserver::FrameSettings;

namespace {

constexpr size_t kNameMax = sizeof(bs::LX_ParkingResult::space_name);
constexpr char kNoPlateText[] = "none";

uint32_t U32(const uint8_t* bytes) {
  return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

std::string Number(const uint8_t* bytes) { return std::to_string(bytes[0]); }
std::string Count(const uint8_t* bytes) { return std::to_string(U32(bytes)); }
std::string Time(const uint8_t* bytes) { return TimeText(U32(bytes)); }
std::string Percent(const uint8_t* bytes) { return Number(bytes) + "%"; }
std::string Enable(const uint8_t* bytes) {
  return bytes[0] == bs::kPlateRead ? "plate" : bytes[0] == bs::kNoPlateRead ? "no-plate" : "";
}
std::string Status(const uint8_t* bytes) { return bytes[0] <= 3 ? SpaceStateName(bytes[0]) : Number(bytes); }

// As the recognition process numbers the colours.
std::string PlateColor(const uint8_t* bytes) {
  for (int32_t color = 0; color < bs::kPlateColours; ++color) {
    if (bytes[0] != bs::kOtherPlateColour && bs::PlateColourOnLine(color) == bytes[0]) return std::to_string(color);
  }
  return bytes[0] == bs::kOtherPlateColour ? "other" : "";
}

// Fields whose length is fixed. A reader answers an empty text for bytes that no sender writes.
struct FixedField {
  const char* name;
  std::string (*read)(const uint8_t* bytes);
};
constexpr FixedField kFixedFields[] = {
    {"enable", Enable},     {"licensecolor", PlateColor}, {"licenseconf", Percent}, {"licensetype", Number},
    {"trigger", Number},    {"carcolor", Number},         {"time", Time},           {"framestatus", Status},
    {"occupyline", Number}, {"headconf", Percent},        {"freenum", Count},       {"framenum", Count},
};

std::string_view FixedText(const uint8_t (&text)[bs::kFixedTextRoom]) {
  const char* chars = reinterpret_cast<const char*>(text);
  return {chars, strnlen(chars, sizeof text)};
}

std::string CharacterText(uint8_t code) {
  const bs::PlateCharacter* character = bs::PlateCharacterOf(code);
  return character != nullptr ? character->text : "?";
}

bool IsCharacter(uint8_t byte) { return byte < bs::kPlateCharacterCount || byte == bs::kUnknownCharacter; }

bool BeginsLongPlate(uint8_t byte) {
  return byte == bs::kUnknownOfLongPlate ||
         (byte >= bs::kLongPlateOffset && byte < bs::kLongPlateOffset + bs::kPlateCharacterCount);
}

// Empty when a byte is none that a sender writes.
std::string PlateText(const uint8_t* bytes, size_t size) {
  while (size > 0 && bytes[size - 1] == 0) --size;
  if (size == 0) return kNoPlateText;
  std::string text;
  size_t at = 0;
  if (BeginsLongPlate(bytes[0])) {
    text = CharacterText(static_cast<uint8_t>(bytes[0] - bs::kLongPlateOffset));
    at = 1;
  } else if (bytes[0] == bs::kArmedPolice && size > 1 && IsCharacter(bytes[1])) {
    text = "WJ" + CharacterText(bytes[1]);
    at = 2;
  }
  for (; at < size; ++at) {
    if (IsCharacter(bytes[at])) {
      text += CharacterText(bytes[at]);
    } else if (bytes[at] <= bs::kLastPlainByte) {
      text += static_cast<char>(bytes[at]);
    } else {
      return "";
    }
  }
  return text;
}

// One reading of a frame, field by field.
class Reading {
 public:
  Reading(const uint8_t* bytes, size_t size, const FieldList& list, bool with_name, bool long_type)
      : bytes_(bytes), size_(size), settings_(list.settings), with_name_(with_name), long_type_(long_type) {
    for (const FrameField* field : list.fields) {
      if (!Read(*field)) break;
    }
    frame_.size = std::max<size_t>(at_, 1);
    if (frame_.problem.empty() && at_ == 0) frame_.problem = "the field list describes an empty frame";
    if (frame_.problem.empty() && !check_problem_.empty()) {
      frame_.problem = check_problem_;
    } else if (!frame_.problem.empty()) {
      frame_.size = 1;
    }
    if (frame_.problem.empty()) frame_.kind = FrameKind::kConfigurable;
  }

  const DecodedFrame& Frame() const { return frame_; }
  size_t End() const { return at_; }

 private:
  bool Read(const FrameField& row) {
    const std::string_view name = row.name;
    if (name == "header") return ReadText("header", FixedText(settings_.header));
    if (name == "end") return ReadText("end", FixedText(settings_.trailer));
    if (name == "license") return ReadPlate();
    if (name == "framename") return ReadName();
    if (name == "checksum") return ReadCheck();
    for (const FixedField& field : kFixedFields) {
      if (name == field.name) return ReadFixed(field, row.size);
    }
    return Fail(std::string(name), "is a field that this tool does not know");
  }

  bool Fail(const std::string& name, const std::string& what) {
    frame_.problem = "at offset " + std::to_string(at_) + ": " + name + " " + what;
    return false;
  }

  bool Has(const std::string& name, size_t count) {
    if (size_ - at_ >= count) return true;
    return Fail(name, "is cut short, " + std::to_string(size_ - at_) + " of " + std::to_string(count) + " bytes");
  }

  bool Take(const std::string& name, size_t count, const std::string& value) {
    if (value.empty()) return Fail(name, "cannot be " + HexText(bytes_ + at_, count));
    frame_.fields.push_back({name, value, at_, count});
    at_ += count;
    return true;
  }

  bool ReadText(const std::string& name, std::string_view text) {
    if (text.empty()) return true;
    const size_t there = std::min(text.size(), size_ - at_);
    const auto wanted = [&] { return HexText(text.data(), text.size()); };
    if (memcmp(bytes_ + at_, text.data(), there) != 0) {
      return Fail(name, "is " + HexText(bytes_ + at_, there) + ", the field list says " + wanted());
    }
    return Has(name, text.size()) && Take(name, text.size(), wanted());
  }

  bool ReadFixed(const FixedField& field, size_t size) {
    if (!Has(field.name, size)) return false;
    if (field.name == std::string_view("licensetype") && (bytes_[at_] == bs::kLongPlateType) != long_type_) {
      return Fail(field.name, "does not go with the plate");
    }
    return Take(field.name, size, field.read(bytes_ + at_));
  }

  bool ReadPlate() {
    if (!Has("license", 1)) return false;
    plate_is_checked_ = bs::IsChecked(settings_, at_);
    const bool long_plate = BeginsLongPlate(bytes_[at_]);
    if (long_plate && !long_type_) return Fail("license", "is of the long type");
    const size_t length = long_plate ? bs::kPlateFieldMax : bs::kPlateField;
    if (!Has("license", length)) return false;
    const std::string text = PlateText(bytes_ + at_, length);
    // A plate of the long type has seven bytes only when it does not begin with a character of the table.
    const bool begins_with_character = bytes_[at_] < bs::kPlateCharacterCount && text != kNoPlateText;
    if (long_type_ && begins_with_character && bytes_[at_] != bs::kArmedPolice) return Fail("license", "is not long");
    return Take("license", length, text);
  }

  // A length byte and the name; a name that is not ASCII is left out of the frame with its length byte.
  bool ReadName() {
    if (!with_name_) {
      frame_.fields.push_back({"framename", "(left out, not ASCII)", at_, 0});
      return true;
    }
    if (!Has("framename", 1)) return false;
    const size_t length = bytes_[at_];
    if (length > kNameMax) return Fail("framename", "cannot be " + std::to_string(length) + " bytes long");
    if (!Has("framename", 1 + length)) return false;
    const char* name = reinterpret_cast<const char*>(bytes_ + at_ + 1);
    if (bs::RightFrameName(name, static_cast<int>(length)) == 0 || memchr(name, 0, length) != nullptr) {
      return Fail("framename", "cannot be " + HexText(name, length));
    }
    const std::string text = Printable({name, length});
    return Take("framename", 1 + length, length > 0 ? text : "\"\"");
  }

  bool ReadCheck() {
    const auto expected = bs::CheckByte(settings_, plate_is_checked_ && long_type_, bytes_, at_);
    if (!expected) return true;  // this list's frames have no check byte
    if (!Has("check", 1)) return false;
    const std::string value = HexText(bytes_ + at_, 1);
    if (*expected != bytes_[at_] && check_problem_.empty()) {
      check_problem_ = "check byte is " + value + ", the frame's bytes give " + HexText(&*expected, 1);
    }
    return Take("check", 1, value);
  }

  const uint8_t* bytes_;
  size_t size_;
  const FrameSettings& settings_;
  bool with_name_;
  bool long_type_;
  size_t at_ = 0;
  bool plate_is_checked_ = false;
  std::string check_problem_;
  DecodedFrame frame_;
};

// Of two readings, the one that explains more: a frame before none, one that a frame or nothing follows before one
// with a rest, the one that got further.
bool Better(const Reading& a, const Reading& b, const uint8_t* bytes, size_t size, const FieldList& list) {
  const auto fits = [](const Reading& r) { return r.Frame().kind == FrameKind::kConfigurable; };
  const auto ends_well = [&](const Reading& r) {
    return fits(r) && (r.End() == size || BeginsWithHeader(bytes + r.End(), size - r.End(), list));
  };
  if (fits(a) != fits(b)) return fits(a);
  if (ends_well(a) != ends_well(b)) return ends_well(a);
  return !fits(a) && a.End() > b.End();
}

std::string TakeField(const Json::Value& entry, FieldList& list) {
  const Json::Value::Members names = entry.getMemberNames();
  if (names.empty()) return "an entry of the field list is empty";
  const FrameField* field = bs::FindFrameField(names.front().c_str());
  if (field == nullptr) return "the field list has an unknown field '" + Printable(names.front()) + "'";
  const Json::Value& value = entry[names.front()];
  if (field->setter != nullptr) field->setter(value, list.settings);
  if (field->handler != nullptr && (field->setter != nullptr || value.asUInt() != 0)) list.fields.push_back(field);
  return "";
}

}  // namespace

FieldList ReadFieldList(const Json::Value& document, const FrameSettings& kept) {
  FieldList list;
  list.settings = kept;
  try {
    const Json::Value& entries = document[bs::kProCfg];
    if (!entries.isArray()) {
      list.problem = "there is no field list: \"pro_cfg\" is missing or no array";
    } else if (entries.size() > bs::kFrameSlots) {
      list.problem = "the field list has " + std::to_string(entries.size()) + " entries, 20 at most";
    }
    for (Json::ArrayIndex i = 0; i < entries.size() && list.problem.empty(); ++i) {
      list.problem = TakeField(entries[i], list);
    }
  } catch (const std::exception& error) {
    list.problem = std::string("the field list is not of the right form: ") + error.what();
  }
  return list;
}

bool BeginsWithHeader(const uint8_t* bytes, size_t size, const FieldList& list) {
  const std::string_view header = FixedText(list.settings.header);
  return !header.empty() && size >= header.size() && memcmp(bytes, header.data(), header.size()) == 0;
}

DecodedFrame DecodeConfigurable(const uint8_t* bytes, size_t size, const FieldList& list) {
  if (!list.problem.empty()) {
    DecodedFrame frame;
    frame.size = 1;
    frame.problem = list.problem;
    return frame;
  }
  const bool has_header = !list.fields.empty() && list.fields.front()->name == std::string_view("header");
  std::optional<Reading> best;
  for (const bool with_name : {true, false}) {
    for (const bool long_type : {false, true}) {
      const Reading reading(bytes, size, list, with_name, long_type);
      if (!best || Better(reading, *best, bytes, size, list)) best.emplace(reading);
      if (has_header && reading.End() == 0) return best->Frame();  // nobody finds another there
    }
  }
  return best->Frame();
}

}  // namespace words
