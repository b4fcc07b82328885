#include "rs485pro/frame_fields.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <numeric>
#include <string>
#include <string_view>

#include "rs485pro/plate_code.h"
#include "rs485pro/rs485pro.h"

namespace businessserver {

namespace {

constexpr uint8_t kDefaultVehicleColour = 1;
constexpr uint8_t kLastVehicleColourClass = 4;
constexpr int32_t kFullConfidence = 100;
constexpr int32_t kPlateTypes = 20;
constexpr int32_t kTriggerTypes = 9;
constexpr int32_t kSpaceStates = 4;

// ---- setters ----

uint8_t HexDigit(char digit) {
  if (digit > '0' && digit <= '9') return static_cast<uint8_t>(digit - '0');
  if (digit >= 'A' && digit <= 'F') return static_cast<uint8_t>(digit - 'A' + 10);
  if (digit >= 'a' && digit <= 'f') return static_cast<uint8_t>(digit - 'a' + 10);
  return 0;
}

// Two of at most 32 characters a byte; an odd last character becomes a byte of its own ("BB8" is BB 08).
void SetFixedText(const Json::Value& value, uint8_t (&field)[kFixedTextRoom]) {
  const std::string text = value.asString();
  const size_t length = strnlen(text.c_str(), sizeof field);
  memset(field, 0, sizeof field);
  ByteWriter out(field);
  for (size_t i = 0; i < length; i += 2) {
    const uint8_t high = HexDigit(text[i]);
    out.LowByte(i + 1 < length ? high << 4 | HexDigit(text[i + 1]) : high);
  }
}

void SetHeader(const Json::Value& value, FrameSettings& settings) { SetFixedText(value, settings.header); }
void SetEnd(const Json::Value& value, FrameSettings& settings) { SetFixedText(value, settings.trailer); }
void SetCheckBegin(const Json::Value& value, FrameSettings& settings) { settings.check_begin = value.asUInt(); }
// Kept: the configured end is one too far for the receivers in the field, and 0 wraps to where no frame reaches.
void SetCheckEnd(const Json::Value& value, FrameSettings& settings) { settings.check_end = value.asUInt() - 1; }
void SetCheckSum(const Json::Value& value, FrameSettings& settings) { settings.check_type = value.asUInt(); }
void SetEncode(const Json::Value& value, FrameSettings& settings) { settings.encode = value.asUInt(); }

// ---- handlers ----

// Kept: the bytes end at the first 00, as texts do; receivers get no header byte of 00.
void PutFixedText(const uint8_t (&field)[kFixedTextRoom], ByteWriter& frame) {
  frame.Bytes(field, static_cast<size_t>(std::find(std::begin(field), std::end(field), 0) - field));
}

void HeaderFuncHandle(const FrameInput& input, ByteWriter& frame) { PutFixedText(input.settings.header, frame); }

void EnableFuncHandle(const FrameInput& input, ByteWriter& frame) {
  frame.Byte(input.result.plate[0] == kNoPlate[0] ? kNoPlateRead : kPlateRead);
}

void LicenseFuncHandle(const FrameInput& input, ByteWriter& frame) {
  Rs485ProBuild::check_license_ = IsChecked(input.settings, frame.size()) ? 1 : 0;
  EncodePlateField(FieldText(input.result.plate), input.result.plate_type == kLongPlateType, frame);
}

void LicenseColourFuncHandle(const FrameInput& input, ByteWriter& frame) {
  frame.Byte(PlateColourOnLine(input.result.plate_color));
}

void LicenseConfFuncHandle(const FrameInput& input, ByteWriter& frame) {
  frame.LowByte(std::min(input.result.plate_confidence, kFullConfidence));
}

void LicenseTypeFuncHandle(const FrameInput& input, ByteWriter& frame) {
  frame.LowByte(input.result.plate_type < kPlateTypes ? input.result.plate_type : 0);
}

void TriggerFuncHandle(const FrameInput& input, ByteWriter& frame) {
  frame.LowByte(input.result.trigger < kTriggerTypes ? input.result.trigger : 0);
}

void CarColourFuncHandle(const FrameInput& input, ByteWriter& frame) {
  const LX_ParkingResult& result = input.result;
  const bool known = result.vehicle_color_class <= kLastVehicleColourClass && result.vehicle_color >= 0;
  frame.LowByte(known ? result.vehicle_color : kDefaultVehicleColour);
}

void TimeFuncHandle(const FrameInput& input, ByteWriter& frame) { frame.U32(input.result.time_stamp); }

void FrameNameFuncHandle(const FrameInput& input, ByteWriter& frame) {
  const std::string_view name = FieldText(input.result.space_name);
  if (RightFrameName(name.data(), static_cast<int>(name.size())) == 0) return;
  frame.LowByte(name.size());
  frame.Text(name);
}

void FrameStatusFuncHandle(const FrameInput& input, ByteWriter& frame) {
  frame.LowByte(input.result.space_status < kSpaceStates ? input.result.space_status : 0);
}

void OccupylineFuncHandle(const FrameInput& input, ByteWriter& frame) { frame.LowByte(input.result.occupy_line); }

void HeadConfFuncHandle(const FrameInput& input, ByteWriter& frame) {
  frame.LowByte(std::min(input.result.head_confidence, kFullConfidence));
}

void FreeNumFuncHandle(const FrameInput& input, ByteWriter& frame) { frame.U32(input.free_num); }

void FrameNumFuncHandle(const FrameInput& input, ByteWriter& frame) { frame.U32(input.frame_num); }

void DataCheckFuncHandle(const FrameInput& input, ByteWriter& frame) {
  const bool longer_plate = Rs485ProBuild::check_license_ != 0 && input.result.plate_type == kLongPlateType;
  const auto check = CheckByte(input.settings, longer_plate, frame.begin(), frame.size());
  if (check) frame.Byte(*check);
}

void RsEndFuncHandle(const FrameInput& input, ByteWriter& frame) { PutFixedText(input.settings.trailer, frame); }

// ---- the table ----

// clang-format off
constexpr FrameField kFrameFields[] = {
    // name          setter         handler                 bytes
    {"header",        SetHeader,     HeaderFuncHandle,        0},
    {"enable",        nullptr,       EnableFuncHandle,        1},
    {"license",       nullptr,       LicenseFuncHandle,       0},
    {"licensecolor",  nullptr,       LicenseColourFuncHandle,  1},
    {"licenseconf",   nullptr,       LicenseConfFuncHandle,   1},
    {"licensetype",   nullptr,       LicenseTypeFuncHandle,   1},
    {"trigger",       nullptr,       TriggerFuncHandle,       1},
    {"carcolor",      nullptr,       CarColourFuncHandle,      1},
    {"time",          nullptr,       TimeFuncHandle,          4},
    {"framename",     nullptr,       FrameNameFuncHandle,     0},
    {"framestatus",   nullptr,       FrameStatusFuncHandle,   1},
    {"occupyline",    nullptr,       OccupylineFuncHandle,    1},
    {"headconf",      nullptr,       HeadConfFuncHandle,      1},
    {"freenum",       nullptr,       FreeNumFuncHandle,       4},
    {"framenum",      nullptr,       FrameNumFuncHandle,      4},
    {"checkbegin",    SetCheckBegin, nullptr,                 0},
    {"checkend",      SetCheckEnd,   nullptr,                 0},
    {"checksum",      SetCheckSum,   DataCheckFuncHandle,     0},
    {"end",           SetEnd,        RsEndFuncHandle,         0},
    {"encode",        SetEncode,     nullptr,                 0},
};
// clang-format on
static_assert(std::size(kFrameFields) == 20);

constexpr bool FieldsAreSound() {
  for (const FrameField& field : kFrameFields) {
    for (const FrameField* other = kFrameFields; other != &field; ++other) {
      if (std::string_view(field.name) == other->name) return false;
    }
    if (field.setter == nullptr && field.handler == nullptr) return false;
  }
  return true;
}
static_assert(FieldsAreSound());

// The largest field is a name of full width with its length byte; header and trailer cannot be longer than their room,
// a plate no longer than its field. A list of nothing but the largest still fits.
constexpr size_t kLargestField =
    std::max({1 + sizeof(LX_ParkingResult::space_name), kFixedTextRoom, kPlateFieldMax, sizeof(uint32_t)});
static_assert(kFrameSlots * kLargestField <= kFrameCapacity);

}  // namespace

const FrameField* FindFrameField(const char* name) {
  const auto* const found =
      std::find_if(std::begin(kFrameFields), std::end(kFrameFields),
                   [&](const FrameField& field) { return Rs485ProBuild::CompareName(&name, &field.name) == 0; });
  return found == std::end(kFrameFields) ? nullptr : found;
}

uint8_t PlateColourOnLine(int32_t plate_color) {
  constexpr uint8_t kColours[kPlateColours] = {kOtherPlateColour, 0, 1, 3, 2, kOtherPlateColour};
  const bool known = plate_color >= 0 && plate_color < kPlateColours;
  return known ? kColours[plate_color] : kOtherPlateColour;
}

bool IsChecked(const FrameSettings& settings, size_t plate_at) {
  return settings.check_begin <= plate_at && plate_at < settings.check_end;
}

std::optional<uint8_t> CheckByte(const FrameSettings& settings, bool longer_plate, const uint8_t* frame,
                                 size_t length) {
  const size_t begin = settings.check_begin;
  size_t end = settings.check_end;
  if (begin >= end || end > length) return std::nullopt;

  // The configured end is for a plate of seven bytes. A plate of the long type that came out with seven all the same
  // would take the range past what has been written.
  if (longer_plate && end < length) ++end;
  switch (settings.check_type) {
    case 0:
      return std::accumulate(frame + begin, frame + end, uint8_t{0}, std::bit_xor<>());
    case 1:
      return static_cast<uint8_t>(std::accumulate(frame + begin, frame + end, 0u));
    default:
      return std::nullopt;
  }
}

int RightFrameName(const char* name, int length) {
  for (int i = 0; i < length; ++i) {
    if (static_cast<uint8_t>(name[i]) >= 0x80) return 0;
  }
  return 1;
}

}  // namespace businessserver
