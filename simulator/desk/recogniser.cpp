#include "desk/recogniser.h"

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "plain_words.h"

namespace desk {
namespace {

using businessserver::FieldText;
using businessserver::kNoPlate;
using businessserver::LX_Parking_Result_Param;
using businessserver::LX_ParkingResult;

struct NumberField {
  const char* word;
  int32_t LX_ParkingResult::*member;
};

constexpr NumberField kNumberFields[] = {
    {"platecolor", &LX_ParkingResult::plate_color},      {"platetype", &LX_ParkingResult::plate_type},
    {"confidence", &LX_ParkingResult::plate_confidence}, {"carcolor", &LX_ParkingResult::vehicle_color},
    {"headconf", &LX_ParkingResult::head_confidence},    {"valid", &LX_ParkingResult::valid},
    {"second", &LX_ParkingResult::second_flag},          {"line", &LX_ParkingResult::occupy_line},
    {"status", &LX_ParkingResult::space_status},         {"trigger", &LX_ParkingResult::trigger},
};

constexpr const char* kOtherFields[] = {"plate", "name", "carclass", "extra"};

const NumberField* FindNumberField(const std::string& word) {
  for (const auto& field : kNumberFields) {
    if (word == field.word) return &field;
  }
  return nullptr;
}

// Texts as long as their field have no terminator, as on the device.
template <size_t Width>
bool SetText(char (&field)[Width], const std::string& utf8, std::string& problem) {
  std::string gbk;
  if (!words::Utf8ToGbk(utf8, gbk) || gbk.size() > Width) {
    problem = "\"" + utf8 + "\" is not GBK text of at most " + std::to_string(Width) + " bytes";
    return false;
  }
  memset(field, 0, Width);
  memcpy(field, gbk.data(), gbk.size());
  return true;
}

void SetNoPlate(LX_ParkingResult& space) {
  memset(space.plate, 0, sizeof space.plate);
  memcpy(space.plate, kNoPlate, sizeof kNoPlate);
}

}  // namespace

Recogniser::Recogniser() {
  std::string no_problem;
  for (size_t i = 0; i < businessserver::kSpaces; ++i) {
    auto& space = record_.spaces[i];
    SetNoPlate(space);
    SetText(space.space_name, "A-10" + std::to_string(i + 1), no_problem);
    space.valid = 1;
    space.plate_color = 0;
    space.plate_confidence = 95;
    space.head_confidence = 90;
  }
}

// Only the space with the event carries the second flag; the others are marked as repeatable, which keeps them off the
// serial line.
void Recogniser::MarkEvent(size_t number) {
  const auto now = static_cast<uint32_t>(time(nullptr));
  for (size_t i = 0; i < businessserver::kSpaces; ++i) {
    auto& space = record_.spaces[i];
    const bool here = i + 1 == number;
    space.trigger = here ? 0 : businessserver::kTriggerRepeatable;
    space.second_flag = here ? 1 : 0;
    if (here) space.time_stamp = now;
  }
}

const LX_Parking_Result_Param& Recogniser::Arrive(size_t number, const std::string& plate) {
  auto& space = record_.spaces[number - 1];
  std::string problem;
  if (plate.empty()) {
    SetNoPlate(space);
  } else {
    SetText(space.plate, plate, problem);
  }
  space.space_status = 1;
  return Touch(number);
}

const LX_Parking_Result_Param& Recogniser::Leave(size_t number) {
  auto& space = record_.spaces[number - 1];
  SetNoPlate(space);
  space.space_status = 0;
  space.occupy_line = 0;
  return Touch(number);
}

const LX_Parking_Result_Param& Recogniser::CrossLine(size_t number, int value) {
  record_.spaces[number - 1].occupy_line = value;
  return Touch(number);
}

const LX_Parking_Result_Param& Recogniser::Touch(size_t number) {
  MarkEvent(number);
  return record_;
}

bool Recogniser::SetField(size_t number, const std::string& field, const std::string& value, std::string& problem) {
  auto& space = record_.spaces[number - 1];
  if (field == "plate") return SetText(space.plate, value, problem);
  if (field == "name") return SetText(space.space_name, value, problem);
  if (field == "extra") return SetText(space.extra_text, value, problem);
  char* end = nullptr;
  const long number_value = strtol(value.c_str(), &end, 10);
  if (value.empty() || *end != '\0') {
    problem = field + " needs a number, not \"" + value + "\"";
    return false;
  }
  if (field == "carclass") {
    space.vehicle_color_class = static_cast<uint8_t>(number_value);
    return true;
  }
  const NumberField* found = FindNumberField(field);
  if (found != nullptr) space.*found->member = static_cast<int32_t>(number_value);
  return found != nullptr;
}

bool Recogniser::IsField(const std::string& field) {
  for (const char* word : kOtherFields) {
    if (field == word) return true;
  }
  return FindNumberField(field) != nullptr;
}

std::string Recogniser::FieldNames() {
  std::string names;
  for (const char* word : kOtherFields) names += std::string(names.empty() ? "" : ", ") + word;
  for (const auto& field : kNumberFields) names += std::string(", ") + field.word;
  return names;
}

std::string SpaceText(const LX_ParkingResult& space) {
  if (space.valid != 1) return "not seen";
  const auto plate = FieldText(space.plate);
  std::string text = words::SpaceStateName(space.space_status);
  if (plate != kNoPlate && !plate.empty()) text += " " + words::Printable(words::GbkToUtf8(plate));
  if (space.occupy_line == 1) text += ", on the line";
  return text;
}

}  // namespace desk
