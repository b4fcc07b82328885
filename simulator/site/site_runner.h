// Plays a script on a car park: each statement at the device that it names.
#pragma once

#include <map>
#include <string>

#include "script/script.h"
#include "script/script_runner.h"
#include "site/car_park.h"

namespace desk {

class SiteRunner {
 public:
  SiteRunner(CarPark& park, const Loop::Condition& interrupted);

  // As of a ScriptRunner.
  bool Run(const Script& script, std::string& problem);
  int expectations_met() const;

 private:
  bool Step(const std::string& file, const Statement& statement, std::string& problem);

  CarPark& park_;
  const Loop::Condition interrupted_;
  std::map<std::string, ScriptRunner> runners_;
};

}  // namespace desk
