#include "script/script_runner.h"

#include <algorithm>
#include <vector>

namespace desk {
namespace {

constexpr size_t kMostSeenShown = 6;
constexpr Loop::Milliseconds kSettle(20);  // what was going on is told before a remark

bool Matches(const Event& event, const Expectation& expectation) {
  if (expectation.in_log) return event.text.find(expectation.wanted.front().second) != std::string::npos;
  if (event.source != expectation.source) return false;
  for (const auto& [name, value] : expectation.wanted) {
    const std::string* found = FindFact(event.facts, name);
    if (found == nullptr || *found != value) return false;
  }
  return true;
}

// The beacon's commands, for one, and not what the desk remarks about the beacon.
bool IsOfItsKind(const Event& event, const Expectation& expectation) {
  if (event.source != expectation.source) return false;
  return expectation.wanted.empty() || FindFact(event.facts, expectation.wanted.front().first) != nullptr;
}

std::string Seconds(Loop::Milliseconds duration) {
  const auto count = duration.count();
  if (count % 1000 != 0) return std::to_string(count) + " ms";
  return std::to_string(count / 1000) + " s";
}

}  // namespace

bool ScriptRunner::Run(const Script& script, std::string& problem) {
  return std::all_of(script.statements.begin(), script.statements.end(),
                     [&](const Statement& statement) { return Step(script.file, statement, problem); });
}

bool ScriptRunner::Step(const std::string& file, const Statement& statement, std::string& problem) {
  const std::string where = file + ":" + std::to_string(statement.line) + ": ";
  if (statement.kind == Statement::Kind::kWait) {
    desk_.loop().RunUntil(interrupted_, statement.wait);
  } else if (statement.kind == Statement::Kind::kExpect) {
    std::string seen;
    expected_since_action_ = true;
    if (!Meet(statement.expectation, seen) && !interrupted_()) {
      const auto& expectation = statement.expectation;
      problem = where + statement.text + "\n    not so " + (expectation.absent ? "for " : "within ");
      problem += Seconds(expectation.limit) + "; seen: " + seen;
      return false;
    }
    ++expectations_met_;
  } else {
    if (statement.kind == Statement::Kind::kAction) {
      NoteAction();
    } else {
      desk_.loop().RunFor(kSettle);
    }
    statement.act(desk_);
  }
  if (!interrupted_()) return true;
  problem = where + "interrupted";
  return false;
}

void ScriptRunner::NoteAction() {
  if (!expected_since_action_) return;
  expected_since_action_ = false;
  journal_mark_ = desk_.journal().next();
  log_mark_ = desk_.daemon_log().next();
}

bool ScriptRunner::Meet(const Expectation& expectation, std::string& seen) {
  bool holds = false;
  desk_.loop().RunUntil(
      [&] {
        holds = HoldsNow(expectation, seen);
        return holds || interrupted_();
      },
      expectation.limit);
  if (!expectation.state && holds == expectation.absent) seen = EventsSeen(expectation);
  return holds != expectation.absent;
}

bool ScriptRunner::HoldsNow(const Expectation& expectation, std::string& seen) {
  return expectation.state ? expectation.state(desk_, seen) : EventSeen(expectation);
}

// Each event meets one expectation at most: two expected broadcasts are two broadcasts.
bool ScriptRunner::EventSeen(const Expectation& expectation) {
  const auto& events = (expectation.in_log ? desk_.daemon_log() : desk_.journal()).events();
  auto& used = expectation.in_log ? log_used_ : used_;
  const uint64_t mark = expectation.next ? NextOf(expectation.source) : expectation.in_log ? log_mark_ : journal_mark_;
  for (const auto& event : events) {
    if (event.number < mark || used.count(event.number) != 0) continue;
    if (Matches(event, expectation)) {
      if (expectation.absent) return true;
      used.insert(event.number);
      if (!expectation.in_log) last_met_[event.source] = event.number;
      return true;
    }
    if (expectation.next && IsOfItsKind(event, expectation)) return false;
  }
  return false;
}

uint64_t ScriptRunner::NextOf(Source source) const {
  const auto last = last_met_.find(source);
  return last == last_met_.end() ? 0 : last->second + 1;
}

// What came from the same source in the same stretch.
std::string ScriptRunner::EventsSeen(const Expectation& expectation) const {
  std::vector<std::string> lines;
  const auto& events = (expectation.in_log ? desk_.daemon_log() : desk_.journal()).events();
  for (auto event = events.rbegin(); event != events.rend() && lines.size() < kMostSeenShown; ++event) {
    if (event->number < (expectation.in_log ? log_mark_ : journal_mark_)) break;
    if (!expectation.in_log && event->source != expectation.source) continue;
    const bool used = !expectation.in_log && used_.count(event->number) != 0;
    lines.push_back("\n      " + event->text + (used ? "  (met another line)" : ""));
  }
  std::string seen;
  for (auto line = lines.rbegin(); line != lines.rend(); ++line) seen += *line;
  return seen.empty() ? "nothing of the kind" : seen;
}

}  // namespace desk
