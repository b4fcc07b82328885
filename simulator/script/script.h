// Scripts: what happens on the desk and what must be seen of it, a few plain words a line. docs/scripts.md lists the
// words. A script is read whole before anything starts, so that a slip of the pen costs no time.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "bringup/loop.h"
#include "desk/journal.h"

namespace desk {

class CarPark;
class Desk;

// What must be seen. Either a state that must come about, or an event that must have happened since the first action
// after the expectations before.
struct Expectation {
  bool absent = false;  // it must not be seen, for the whole limit
  bool next = false;    // nothing of its kind may stand between it and the last that met an expectation
  Loop::Milliseconds limit{3000};

  bool of_site = false;  // only who sees a whole site can tell

  // A state: whether it holds now; seen says what is there instead.
  std::function<bool(Desk& desk, std::string& seen)> state;

  // An event, when state is empty.
  bool in_log = false;  // a line of the daemon's log that contains the only wanted value
  Source source = Source::kDesk;
  Facts wanted;
};

struct Statement {
  enum class Kind { kAction, kQuiet, kWait, kExpect };  // quiet: an action that expectations take no notice of

  int line = 0;
  std::string text;
  Kind kind = Kind::kAction;
  std::string device;  // of a site; empty: the only one, or the site itself
  std::function<void(Desk&)> act;
  std::function<void(CarPark&)> act_on_site;  // instead
  Loop::Milliseconds wait{0};
  Expectation expectation;
};

struct Script {
  std::string file;
  std::vector<Statement> statements;
};

// The devices of a site, for scripts that need one.
using SiteDevices = std::set<std::string>;

// Appends one line "file:line: what is wrong" for each mistake; true when there is none.
bool ParseScript(const std::string& file, const std::string& text, Script& script, std::vector<std::string>& mistakes,
                 const SiteDevices& site = {});
bool ReadScript(const std::string& file, Script& script, std::vector<std::string>& mistakes,
                const SiteDevices& site = {});

}  // namespace desk
