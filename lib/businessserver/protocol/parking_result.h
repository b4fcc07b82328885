// The recognition process's result record, 968 bytes, little-endian, as it travels on the bus: one entry for each of
// the three watched spaces and a text. Texts are NUL-terminated when shorter than their field, never longer; read
// them with FieldText. Bytes named `unread` are the recognition process's own and are carried along unchanged.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace businessserver {

struct LX_ParkingResult {
  char plate[16];  // GBK
  uint8_t unread_16[8];
  int32_t plate_color;
  int32_t plate_type;        // kLongPlateType marks a plate with one more character
  int32_t plate_confidence;  // 0 to 100
  uint8_t unread_36[4];
  int32_t vehicle_color;
  uint8_t unread_44[20];
  uint32_t time_stamp;
  uint8_t unread_68[5];
  uint8_t vehicle_color_class;  // the vehicle colour counts only up to class 4
  uint8_t unread_74[22];
  int32_t head_confidence;
  int32_t valid;        // 1: this space's result is present
  int32_t second_flag;  // the recognition process's own; nonzero lets a triggered result through
  int32_t occupy_line;
  int32_t space_status;  // 0 free, nonzero occupied
  int32_t trigger;       // 0 to 8; kTriggerRepeatable is subject to the duplicate test
  char space_name[32];
  char extra_text[128];
};

constexpr int32_t kLongPlateType = 19;
constexpr int32_t kTriggerRepeatable = 1;
constexpr size_t kSpaces = 3;

// "_无_" in GBK with its terminator: no plate was read.
constexpr char kNoPlate[] = "\x5F\xCE\xDE\x5F";

struct LX_Parking_Result_Param {
  LX_ParkingResult spaces[kSpaces];
  char extra_text[128];
};

// The same layout in the form that the server publishes.
using LX_Parking_Result_Param_Bus = LX_Parking_Result_Param;

// Bytes copied in one block when a space's result is republished: everything before the head confidence.
constexpr size_t kResultHeadBytes = offsetof(LX_ParkingResult, head_confidence);

static_assert(offsetof(LX_ParkingResult, plate) == 0);
static_assert(offsetof(LX_ParkingResult, plate_color) == 24);
static_assert(offsetof(LX_ParkingResult, plate_type) == 28);
static_assert(offsetof(LX_ParkingResult, plate_confidence) == 32);
static_assert(offsetof(LX_ParkingResult, vehicle_color) == 40);
static_assert(offsetof(LX_ParkingResult, time_stamp) == 64);
static_assert(offsetof(LX_ParkingResult, vehicle_color_class) == 73);
static_assert(offsetof(LX_ParkingResult, head_confidence) == 96);
static_assert(offsetof(LX_ParkingResult, valid) == 100);
static_assert(offsetof(LX_ParkingResult, second_flag) == 104);
static_assert(offsetof(LX_ParkingResult, occupy_line) == 108);
static_assert(offsetof(LX_ParkingResult, space_status) == 112);
static_assert(offsetof(LX_ParkingResult, trigger) == 116);
static_assert(offsetof(LX_ParkingResult, space_name) == 120);
static_assert(offsetof(LX_ParkingResult, extra_text) == 152);
static_assert(sizeof(LX_ParkingResult) == 280);
static_assert(offsetof(LX_Parking_Result_Param, extra_text) == 840);
static_assert(sizeof(LX_Parking_Result_Param) == 968);

// The text in a fixed-width field: up to its NUL or, where there is none, up to the width.
template <size_t Width>
std::string_view FieldText(const char (&field)[Width]) {
  return std::string_view(field, strnlen(field, Width));
}

// Copies a text field into another of the same width, NUL-padding what the text leaves.
template <size_t Width>
void CopyFieldText(char (&to)[Width], const char (&from)[Width]) {
  const size_t length = strnlen(from, Width);
  memcpy(to, from, length);
  memset(to + length, 0, Width - length);
}

}  // namespace businessserver
