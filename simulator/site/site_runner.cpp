#include "site/site_runner.h"

#include <algorithm>
#include <numeric>

namespace desk {

SiteRunner::SiteRunner(CarPark& park, const Loop::Condition& interrupted) : park_(park), interrupted_(interrupted) {
  for (const auto& [name, plan] : park_.site().devices) {
    runners_.emplace(std::piecewise_construct, std::forward_as_tuple(name),
                     std::forward_as_tuple(*park_.Find(name), interrupted));
  }
}

bool SiteRunner::Run(const Script& script, std::string& problem) {
  return std::all_of(script.statements.begin(), script.statements.end(),
                     [&](const Statement& statement) { return Step(script.file, statement, problem); });
}

// What happens anywhere begins a new stretch everywhere: it is to be seen elsewhere.
bool SiteRunner::Step(const std::string& file, const Statement& statement, std::string& problem) {
  if (statement.kind == Statement::Kind::kAction) {
    for (auto& [name, runner] : runners_) runner.NoteAction();
  }
  if (!statement.device.empty()) return runners_.at(statement.device).Step(file, statement, problem);
  if (statement.kind == Statement::Kind::kWait) {
    park_.loop().RunUntil(interrupted_, statement.wait);
  } else {
    statement.act_on_site(park_);
  }
  if (!interrupted_()) return true;
  problem = file + ":" + std::to_string(statement.line) + ": interrupted";
  return false;
}

int SiteRunner::expectations_met() const {
  return std::accumulate(runners_.begin(), runners_.end(), 0,
                         [](int sum, const auto& entry) { return sum + entry.second.expectations_met(); });
}

}  // namespace desk
