// The recognition process: it knows what stands on the three spaces and says so in result records.
#pragma once

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "protocol/parking_result.h"

namespace desk {

class Recogniser {
 public:
  Recogniser();

  // Spaces are counted from 1. An event on one space: the record that tells of it, the others repeated unchanged.
  const businessserver::LX_Parking_Result_Param& Arrive(size_t space, const std::string& plate);
  const businessserver::LX_Parking_Result_Param& Leave(size_t space);
  const businessserver::LX_Parking_Result_Param& CrossLine(size_t space, int value);
  const businessserver::LX_Parking_Result_Param& Touch(size_t space);  // an event that changes nothing by itself

  // Sets a field of a space by its word in scripts ("confidence", "trigger" ...) for the events to come. False and a
  // problem when there is no such field or the value does not fit it.
  bool SetField(size_t space, const std::string& field, const std::string& value, std::string& problem);
  static bool IsField(const std::string& field);
  static std::string FieldNames();

  const businessserver::LX_ParkingResult& space(size_t number) const { return record_.spaces[number - 1]; }
  const businessserver::LX_Parking_Result_Param& record() const { return record_; }

 private:
  void MarkEvent(size_t space);

  businessserver::LX_Parking_Result_Param record_{};
};

// A record's space as people read it: "free", "occupied by 京A12345", "occupied, no plate, on the line".
std::string SpaceText(const businessserver::LX_ParkingResult& space);

}  // namespace desk
