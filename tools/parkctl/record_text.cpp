#include "record_text.h"

#include <algorithm>
#include <cstring>

#include "console.h"
#include "plain_words.h"

namespace parkctl {

using businessserver::FieldText;
using businessserver::kSpaces;
using businessserver::LX_Parking_Result_Param;
using businessserver::LX_ParkingResult;

namespace {

constexpr int32_t kLikelyConfidence = 95;
constexpr size_t kLongPlateCharacters = 8;
constexpr int kStates = 4;

size_t Characters(const std::string& utf8) {
  return static_cast<size_t>(std::count_if(utf8.begin(), utf8.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

template <size_t Width>
void SetText(char (&field)[Width], const std::string& utf8, const char* option) {
  std::string gbk;
  if (!words::Utf8ToGbk(utf8, gbk)) {
    throw UserError(std::string(option) + ": '" + words::Printable(utf8) + "' has a character that GBK cannot write");
  }
  if (gbk.size() >= Width) {
    throw UserError(std::string(option) + ": '" + words::Printable(utf8) + "' is " + std::to_string(gbk.size()) +
                    " bytes in GBK, at most " + std::to_string(Width - 1) + " fit");
  }
  memset(field, 0, Width);
  gbk.copy(field, gbk.size());
}

int32_t Int(const std::string& text, const char* option, long long least = INT32_MIN, long long most = INT32_MAX) {
  return static_cast<int32_t>(ParseNumber(text, least, most, option));
}

void SetStatus(SpaceDraft& draft, const std::string& value) {
  for (int state = 0; state < kStates; ++state) {
    if (value == words::SpaceStateName(state)) {
      draft.result.space_status = state;
      return;
    }
  }
  draft.result.space_status = Int(value, "--status (or free, occupied, reserved, alarm)");
}

void SetPlate(SpaceDraft& draft, const std::string& value) {
  SetText(draft.result.plate, value, "--plate");
  draft.plate_given = true;
  draft.long_plate = Characters(value) == kLongPlateCharacters;
}

std::string PlateWords(const LX_ParkingResult& result) {
  const std::string_view plate = FieldText(result.plate);
  if (plate.empty() || plate == businessserver::kNoPlate) return "no plate";
  return words::Printable(words::GbkToUtf8(plate));
}

template <size_t Width>
std::string TextWords(const char (&field)[Width]) {
  return words::Printable(words::GbkToUtf8(FieldText(field)));
}

std::string StateWords(int32_t state) {
  const std::string name = words::SpaceStateName(state);
  return state >= 0 && state < kStates ? name : name + " state " + std::to_string(state);
}

Json::Value SpaceJson(const LX_ParkingResult& result, size_t number) {
  Json::Value space;
  space["space"] = static_cast<Json::UInt>(number);
  space["valid"] = result.valid;
  space["space_status"] = result.space_status;
  space["plate"] = words::GbkToUtf8(FieldText(result.plate));
  space["plate_color"] = result.plate_color;
  space["plate_type"] = result.plate_type;
  space["plate_confidence"] = result.plate_confidence;
  space["vehicle_color"] = result.vehicle_color;
  space["vehicle_color_class"] = result.vehicle_color_class;
  space["time_stamp"] = result.time_stamp;
  space["head_confidence"] = result.head_confidence;
  space["second_flag"] = result.second_flag;
  space["occupy_line"] = result.occupy_line;
  space["trigger"] = result.trigger;
  space["space_name"] = words::GbkToUtf8(FieldText(result.space_name));
  space["extra_text"] = words::GbkToUtf8(FieldText(result.extra_text));
  return space;
}

std::string SpaceText(const LX_ParkingResult& result, size_t number) {
  std::string text = "space " + std::to_string(number) + "  ";
  if (result.valid != 1) return text + "no result\n";
  const auto line = [&](const char* label, const std::string& words) {
    text += std::string("  ") + label + words + "\n";
  };
  const auto number_of = [](const char* words, long long value) { return words + std::to_string(value); };
  text += StateWords(result.space_status) + ", " + PlateWords(result) + "\n";
  line("name     ", TextWords(result.space_name));
  line("plate    ", number_of("colour ", result.plate_color) + number_of(", type ", result.plate_type) +
                        number_of(", confidence ", result.plate_confidence) + "%");
  line("vehicle  ", number_of("colour ", result.vehicle_color) + number_of(", class ", result.vehicle_color_class) +
                        number_of(", head confidence ", result.head_confidence) + "%");
  line("event    ", words::TimeText(result.time_stamp) + number_of(", trigger ", result.trigger) +
                        number_of(", occupation line ", result.occupy_line) +
                        number_of(", second flag ", result.second_flag));
  if (!FieldText(result.extra_text).empty()) line("text     ", TextWords(result.extra_text));
  return text;
}

void FillIn(SpaceDraft& draft) {
  LX_ParkingResult& result = draft.result;
  if (!draft.plate_given) memcpy(result.plate, businessserver::kNoPlate, sizeof businessserver::kNoPlate);
  if (!draft.confidence_given) result.plate_confidence = draft.plate_given ? kLikelyConfidence : 0;
  if (!draft.type_given && draft.long_plate) result.plate_type = businessserver::kLongPlateType;
}

}  // namespace

// clang-format off
const std::vector<ResultOption> kResultOptions = {
    {kSpaceOption, "N", "The space that the options after it describe, 1 to 3", nullptr},
    {"--occupied", nullptr, "A car stands there",
     [](SpaceDraft& d, const std::string&) { d.result.space_status = 1; }},
    {"--free", nullptr, "Nothing stands there (the default)",
     [](SpaceDraft& d, const std::string&) { d.result.space_status = 0; }},
    {"--status", "STATE", "free, occupied, reserved, alarm or a number", SetStatus},
    {"--plate", "PLATE", "The plate read, e.g. 京A12345; none without it", SetPlate},
    {"--name", "NAME", "The space's name (P1 to P3 without it)",
     [](SpaceDraft& d, const std::string& v) { SetText(d.result.space_name, v, "--name"); }},
    {"--plate-color", "CODE", "Plate colour code",
     [](SpaceDraft& d, const std::string& v) { d.result.plate_color = Int(v, "--plate-color"); }},
    {"--plate-type", "TYPE", "Plate type (19 without it when the plate has 8 characters)",
     [](SpaceDraft& d, const std::string& v) { d.result.plate_type = Int(v, "--plate-type"); d.type_given = true; }},
    {"--confidence", "PERCENT", "Plate confidence (95 with a plate)",
     [](SpaceDraft& d, const std::string& v) {
       d.result.plate_confidence = Int(v, "--confidence", 0, 100);
       d.confidence_given = true;
     }},
    {"--vehicle-color", "CODE", "Vehicle colour code",
     [](SpaceDraft& d, const std::string& v) { d.result.vehicle_color = Int(v, "--vehicle-color"); }},
    {"--vehicle-class", "CLASS", "Vehicle colour class; the colour counts up to class 4",
     [](SpaceDraft& d, const std::string& v) {
       d.result.vehicle_color_class = static_cast<uint8_t>(Int(v, "--vehicle-class", 0, 255));
     }},
    {"--head-confidence", "PERCENT", "Confidence of the vehicle's head",
     [](SpaceDraft& d, const std::string& v) { d.result.head_confidence = Int(v, "--head-confidence", 0, 100); }},
    {"--time", "SECONDS", "Time stamp, seconds since 1970 (now)",
     [](SpaceDraft& d, const std::string& v) {
       d.result.time_stamp = static_cast<uint32_t>(ParseNumber(v, 0, UINT32_MAX, "--time"));
     }},
    {"--trigger", "TYPE", "Trigger type, 0 to 8; 1 is subject to the repeat test",
     [](SpaceDraft& d, const std::string& v) { d.result.trigger = Int(v, "--trigger"); }},
    {"--occupy-line", "VALUE", "Occupation-line value",
     [](SpaceDraft& d, const std::string& v) { d.result.occupy_line = Int(v, "--occupy-line"); }},
    {"--second-flag", "VALUE", "The recognition process's second flag",
     [](SpaceDraft& d, const std::string& v) { d.result.second_flag = Int(v, "--second-flag"); }},
    {"--text", "TEXT", "The space's extra text",
     [](SpaceDraft& d, const std::string& v) { SetText(d.result.extra_text, v, "--text"); }},
    {"--invalid", nullptr, "Leave the space's valid flag at 0",
     [](SpaceDraft& d, const std::string&) { d.result.valid = 0; }},
};
// clang-format on

LX_Parking_Result_Param BuildRecord(const std::vector<GivenOption>& options, const std::string& extra_text,
                                    uint32_t now) {
  LX_Parking_Result_Param record = {};
  SpaceDraft drafts[kSpaces];
  bool given[kSpaces] = {};
  SpaceDraft* draft = nullptr;
  for (const auto& [option, value] : options) {
    if (option->apply != nullptr) {
      if (draft == nullptr) throw UserError(std::string(option->name) + ": say first which space, e.g. --space 1");
      option->apply(*draft, value);
      continue;
    }
    const auto index = static_cast<size_t>(ParseNumber(value, 1, kSpaces, kSpaceOption)) - 1;
    if (given[index]) throw UserError("--space " + value + " is given twice");
    given[index] = true;
    draft = &drafts[index];
    draft->result.valid = 1;
    draft->result.time_stamp = now;
    SetText(draft->result.space_name, "P" + value, kSpaceOption);
  }
  if (draft == nullptr) throw UserError("no space: say at least --space 1 --occupied or --space 1 --free");
  for (size_t i = 0; i < kSpaces; ++i) {
    FillIn(drafts[i]);
    record.spaces[i] = drafts[i].result;
  }
  SetText(record.extra_text, extra_text, "--record-text");
  return record;
}

bool ReadRecord(const std::string& data, LX_Parking_Result_Param& record, std::string& problem) {
  if (data.size() != sizeof record) {
    problem =
        "not a result record: " + std::to_string(data.size()) + " bytes instead of " + std::to_string(sizeof record);
    return false;
  }
  memcpy(&record, data.data(), sizeof record);
  return true;
}

std::string RecordLine(const LX_Parking_Result_Param& record) {
  std::string line;
  for (size_t i = 0; i < kSpaces; ++i) {
    const LX_ParkingResult& result = record.spaces[i];
    line += (i > 0 ? " | " : "") + std::to_string(i + 1) + " ";
    if (result.valid != 1) {
      line += "-";
      continue;
    }
    line += StateWords(result.space_status);
    if (result.space_status != 0 || PlateWords(result) != "no plate") line += " " + PlateWords(result);
    if (!FieldText(result.space_name).empty()) line += " (" + TextWords(result.space_name) + ")";
  }
  return line;
}

std::string RecordText(const LX_Parking_Result_Param& record) {
  std::string text;
  for (size_t i = 0; i < kSpaces; ++i) text += SpaceText(record.spaces[i], i + 1);
  if (!FieldText(record.extra_text).empty()) text += "text     " + TextWords(record.extra_text) + "\n";
  return text;
}

Json::Value RecordJson(const LX_Parking_Result_Param& record) {
  Json::Value document;
  for (size_t i = 0; i < kSpaces; ++i) document["spaces"].append(SpaceJson(record.spaces[i], i + 1));
  document["extra_text"] = words::GbkToUtf8(FieldText(record.extra_text));
  return document;
}

}  // namespace parkctl
