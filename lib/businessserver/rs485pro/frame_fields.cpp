#include "rs485pro/frame_fields.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

#include "rs485pro/plate_code.h"
#include "rs485pro/rs485pro.h"

namespace businessserver {

namespace {

constexpr uint8_t kPlateRead = 0xAA;
constexpr uint8_t kNoPlateRead = 0xBB;
constexpr uint8_t kDefaultVehicleColor = 1;
constexpr uint8_t kLastVehicleColorClass = 4;
constexpr int32_t kFullConfidence = 100;
constexpr int32_t kPlateTypes = 20;
constexpr int32_t kTriggerTypes = 9;
constexpr int32_t kSpaceStates = 4;

// ---- setters ----

FrameSettings& SettingsOf(void* target) { return *static_cast<FrameSettings*>(target); }

uint8_t HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return static_cast<uint8_t>(digit - '0');
  if (digit >= 'A' && digit <= 'F') return static_cast<uint8_t>(digit - 'A' + 10);
  if (digit >= 'a' && digit <= 'f') return static_cast<uint8_t>(digit - 'a' + 10);
  return 0;
}

// Two characters a byte, at most max_chars of them; an odd last character becomes a byte of its own ("BB8" is BB 08).
// Returns the number of bytes.
int ParserHexHeader(uint8_t* out, int max_chars, const char* text) {
  if (text == nullptr) return 0;
  const int length = static_cast<int>(strnlen(text, static_cast<size_t>(max_chars)));
  for (int i = 0; i < length; i += 2) {
    const uint8_t high = HexDigit(text[i]);
    *out++ = i + 1 < length ? static_cast<uint8_t>(high << 4 | HexDigit(text[i + 1])) : high;
  }
  return length / 2 + length % 2;
}

int SetFixedText(const Json::Value& value, uint8_t (&field)[kFixedTextRoom]) {
  const std::string text = value.asString();
  memset(field, 0, sizeof field);
  return ParserHexHeader(field, sizeof field, text.c_str());
}

int SetHeader(const Json::Value& value, void* target) { return SetFixedText(value, SettingsOf(target).header); }
int SetEnd(const Json::Value& value, void* target) { return SetFixedText(value, SettingsOf(target).trailer); }

int SetCheckBegin(const Json::Value& value, void* target) {
  SettingsOf(target).check_begin = value.asUInt();
  return 0;
}

// Kept: the configured end is one too far for the receivers in the field, and 0 wraps to where no frame reaches.
int SetCheckEnd(const Json::Value& value, void* target) {
  SettingsOf(target).check_end = value.asUInt() - 1;
  return 0;
}

int SetCheckSum(const Json::Value& value, void* target) {
  SettingsOf(target).check_type = value.asUInt();
  return 0;
}

int SetEncode(const Json::Value& value, void* target) {
  SettingsOf(target).encode = value.asUInt();
  return 0;
}

// ---- handlers ----

uint32_t PutByte(uint8_t* out, int32_t value) {
  *out = static_cast<uint8_t>(value);
  return 1;
}

uint32_t PutU32(uint8_t* out, uint32_t value) {
  for (unsigned i = 0; i < 4; ++i) out[i] = static_cast<uint8_t>(value >> 8 * i);
  return 4;
}

// Kept: the bytes end at the first 00, as texts do; receivers get no header byte of 00.
uint32_t PutFixedText(uint8_t* out, const uint8_t (&field)[kFixedTextRoom]) {
  const uint8_t* const end = std::find(std::begin(field), std::end(field), 0);
  std::copy(std::begin(field), end, out);
  return static_cast<uint32_t>(end - field);
}

uint32_t HeaderFuncHandle(const LX_ParkingResult*, uint8_t* out, Rs485ProBuild* builder) {
  return PutFixedText(out, builder->Settings().header);
}

uint32_t EnableFuncHandle(const LX_ParkingResult* result, uint8_t* out, Rs485ProBuild*) {
  return PutByte(out, result->plate[0] == kNoPlate[0] ? kNoPlateRead : kPlateRead);
}

uint32_t LicenseFuncHandle(const LX_ParkingResult* result, uint8_t* out, Rs485ProBuild* builder) {
  const FrameSettings& settings = builder->Settings();
  const uint32_t position = builder->Length();
  Rs485ProBuild::check_license_ = settings.check_begin <= position && position < settings.check_end ? 1 : 0;

  uint8_t field[kPlateFieldMax];
  const size_t length = EncodePlateField(FieldText(result->plate), result->plate_type == kLongPlateType, field);
  memcpy(out, field, length);
  return static_cast<uint32_t>(length);
}

uint32_t LicenseColorFuncHandle(const LX_ParkingResult* result, uint8_t* out, Rs485ProBuild*) {
  constexpr uint8_t kColors[] = {4, 0, 1, 3, 2, 4};
  constexpr uint8_t kOtherColor = 4;
  const int32_t color = result->plate_color;
  const bool known = color >= 0 && color < static_cast<int32_t>(sizeof kColors);
  return PutByte(out, known ? kColors[color] : kOtherColor);
}

uint32_t LicenseConfFuncHandle(const LX_ParkingResult* result, uint8_t* out, Rs485ProBuild*) {
  return PutByte(out, std::min(result->plate_confidence, kFullConfidence));
}

uint32_t LicenseTypeFuncHandle(const LX_ParkingResult* result, uint8_t* out, Rs485ProBuild*) {
  return PutByte(out, result->plate_type < kPlateTypes ? result->plate_type : 0);
}

uint32_t TriggerFuncHandle(const LX_ParkingResult* result, uint8_t* out, Rs485ProBuild*) {
  return PutByte(out, result->trigger < kTriggerTypes ? result->trigger : 0);
}

uint32_t CarColorFuncHandle(const LX_ParkingResult* result, uint8_t* out, Rs485ProBuild*) {
  const bool known = result->vehicle_color_class <= kLastVehicleColorClass && result->vehicle_color >= 0;
  return PutByte(out, known ? result->vehicle_color : kDefaultVehicleColor);
}

uint32_t TimeFuncHandle(const LX_ParkingResult* result, uint8_t* out, Rs485ProBuild*) {
  return PutU32(out, result->time_stamp);
}

uint32_t FrameNameFuncHandle(const LX_ParkingResult* result, uint8_t* out, Rs485ProBuild*) {
  const std::string_view name = FieldText(result->space_name);
  if (RightFrameName(name.data(), static_cast<int>(name.size())) == 0) return 0;
  *out = static_cast<uint8_t>(name.size());
  memcpy(out + 1, name.data(), name.size());
  return static_cast<uint32_t>(1 + name.size());
}

uint32_t FrameStatusFuncHandle(const LX_ParkingResult* result, uint8_t* out, Rs485ProBuild*) {
  return PutByte(out, result->space_status < kSpaceStates ? result->space_status : 0);
}

uint32_t OccupylineFuncHandle(const LX_ParkingResult* result, uint8_t* out, Rs485ProBuild*) {
  return PutByte(out, result->occupy_line);
}

uint32_t HeadConfFuncHandle(const LX_ParkingResult* result, uint8_t* out, Rs485ProBuild*) {
  return PutByte(out, std::min(result->head_confidence, kFullConfidence));
}

uint32_t FreeNumFuncHandle(const LX_ParkingResult*, uint8_t* out, Rs485ProBuild* builder) {
  return PutU32(out, builder->FreeNum());
}

uint32_t FrameNumFuncHandle(const LX_ParkingResult*, uint8_t* out, Rs485ProBuild* builder) {
  return PutU32(out, builder->FrameNum());
}

uint32_t DataCheckFuncHandle(const LX_ParkingResult* result, uint8_t* out, Rs485ProBuild* builder) {
  const FrameSettings& settings = builder->Settings();
  const uint32_t begin = settings.check_begin;
  uint32_t end = settings.check_end;
  if (begin > builder->Length() || builder->Length() < end || begin >= end) return 0;

  // The configured end is for a plate of seven bytes. A plate of this type that came out with seven all the same would
  // take the range past what has been written.
  if (Rs485ProBuild::check_license_ != 0 && result->plate_type == kLongPlateType && end < builder->Length()) ++end;

  const uint8_t* const frame = builder->Frame();
  uint8_t check = 0;
  switch (settings.check_type) {
    case 0:
      for (uint32_t i = begin; i < end; ++i) check ^= frame[i];
      return PutByte(out, check);
    case 1:
      for (uint32_t i = begin; i < end; ++i) check = static_cast<uint8_t>(check + frame[i]);
      return PutByte(out, check);
    default:
      return 0;
  }
}

uint32_t RsEndFuncHandle(const LX_ParkingResult*, uint8_t* out, Rs485ProBuild* builder) {
  return PutFixedText(out, builder->Settings().trailer);
}

// ---- the table ----

// clang-format off
constexpr FrameField kFrameFields[] = {
    // name           setter         handler
    {"header",       SetHeader,     HeaderFuncHandle},
    {"enable",       nullptr,       EnableFuncHandle},
    {"license",      nullptr,       LicenseFuncHandle},
    {"licensecolor", nullptr,       LicenseColorFuncHandle},
    {"licenseconf",  nullptr,       LicenseConfFuncHandle},
    {"licensetype",  nullptr,       LicenseTypeFuncHandle},
    {"trigger",      nullptr,       TriggerFuncHandle},
    {"carcolor",     nullptr,       CarColorFuncHandle},
    {"time",         nullptr,       TimeFuncHandle},
    {"framename",    nullptr,       FrameNameFuncHandle},
    {"framestatus",  nullptr,       FrameStatusFuncHandle},
    {"occupyline",   nullptr,       OccupylineFuncHandle},
    {"headconf",     nullptr,       HeadConfFuncHandle},
    {"freenum",      nullptr,       FreeNumFuncHandle},
    {"framenum",     nullptr,       FrameNumFuncHandle},
    {"checkbegin",   SetCheckBegin, nullptr},
    {"checkend",     SetCheckEnd,   nullptr},
    {"checksum",     SetCheckSum,   DataCheckFuncHandle},
    {"end",          SetEnd,        RsEndFuncHandle},
    {"encode",       SetEncode,     nullptr},
};
// clang-format on
static_assert(std::size(kFrameFields) == 20);

constexpr bool NamesDistinct() {
  for (const FrameField& field : kFrameFields) {
    for (const FrameField* other = kFrameFields; other != &field; ++other) {
      if (std::string_view(field.name) == other->name) return false;
    }
  }
  return true;
}
static_assert(NamesDistinct());

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

int RightFrameName(const char* name, int length) {
  for (int i = 0; i < length; ++i) {
    if (static_cast<uint8_t>(name[i]) >= 0x80) return 0;
  }
  return 1;
}

}  // namespace businessserver
