// Plays a script on a desk.
#pragma once

#include <map>
#include <set>
#include <string>

#include "desk/desk.h"
#include "script/script.h"

namespace desk {

class ScriptRunner {
 public:
  // interrupted is asked again and again; once it says yes the script ends early.
  ScriptRunner(Desk& desk, Loop::Condition interrupted) : desk_(desk), interrupted_(std::move(interrupted)) {}

  // False when an expectation failed or the script was interrupted; problem then names the line, what was expected and
  // what was seen instead.
  bool Run(const Script& script, std::string& problem);

  // The same for one statement.
  bool Step(const std::string& file, const Statement& statement, std::string& problem);

  // The first action after an expectation begins a new stretch; what happened before it is over.
  void NoteAction();

  int expectations_met() const { return expectations_met_; }

 private:
  bool Meet(const Expectation& expectation, std::string& seen);
  bool HoldsNow(const Expectation& expectation, std::string& seen);
  bool EventSeen(const Expectation& expectation);
  std::string EventsSeen(const Expectation& expectation) const;
  uint64_t NextOf(Source source) const;

  Desk& desk_;
  Loop::Condition interrupted_;
  int expectations_met_ = 0;
  bool expected_since_action_ = false;
  uint64_t journal_mark_ = 0;
  uint64_t log_mark_ = 0;
  std::set<uint64_t> used_;      // events of the journal that have met an expectation
  std::set<uint64_t> log_used_;  // the same of the log
  std::map<Source, uint64_t> last_met_;
};

}  // namespace desk
