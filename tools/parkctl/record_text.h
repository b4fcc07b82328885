// The recognition process's result record: made from words, and told in words. Nothing here talks to anyone.
#pragma once

#include <json/value.h>

#include <string>
#include <utility>
#include <vector>

#include "protocol/parking_result.h"

namespace parkctl {

// A space being put together, option by option.
struct SpaceDraft {
  businessserver::LX_ParkingResult result = {};
  bool plate_given = false;
  bool long_plate = false;
  bool type_given = false;
  bool confidence_given = false;
};

// One option of "parkctl result". Those of a space follow its --space.
struct ResultOption {
  const char* name;
  const char* value;  // what it takes, or null
  const char* help;
  void (*apply)(SpaceDraft& draft, const std::string& value);
};

extern const std::vector<ResultOption> kResultOptions;

using GivenOption = std::pair<const ResultOption*, std::string>;
constexpr char kSpaceOption[] = "--space";

// The record that the options describe, in their order; now is the time stamp of spaces that name none. Spaces that
// are not named carry no result. Throws UserError.
businessserver::LX_Parking_Result_Param BuildRecord(const std::vector<GivenOption>& options,
                                                    const std::string& extra_text, uint32_t now);

// False, and why, when the data is no record: its size is wrong.
bool ReadRecord(const std::string& data, businessserver::LX_Parking_Result_Param& record, std::string& problem);

// "1 occupied 京A12345 (P1) | 2 free (P2) | 3 -"
std::string RecordLine(const businessserver::LX_Parking_Result_Param& record);

// A few lines a space, with every field that the device looks at.
std::string RecordText(const businessserver::LX_Parking_Result_Param& record);

Json::Value RecordJson(const businessserver::LX_Parking_Result_Param& record);

}  // namespace parkctl
