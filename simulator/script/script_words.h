// One line of a script, word by word. A word in double quotes may hold blanks; a JSON text runs to the end of the line.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "bringup/loop.h"
#include "desk/journal.h"
#include "script/script.h"

namespace desk {

class ScriptMistake : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Everything that does not find what it needs throws ScriptMistake.
class Words {
 public:
  explicit Words(const std::string& line) : line_(line) {}

  bool AtEnd() const;
  std::string Peek() const;  // empty at the end
  std::string Next(const std::string& what);
  std::string Rest();  // as it is written, without blanks around it
  bool Take(const std::string& word);
  void Require(const std::string& word);
  uint32_t Number(const std::string& what);
  size_t Space();  // "space N"
  uint32_t Address();
  std::string Hex();  // to the end of the line
  Loop::Milliseconds Duration();
  Facts FactsToCompare();  // key=value ...
  void RequireEnd();

 private:
  size_t SkipBlanks(size_t at) const;
  std::string WordAt(size_t& at) const;

  std::string line_;
  size_t at_ = 0;
};

struct ActionWords {
  const char* words;  // how a line begins
  const char* usage;
  Statement::Kind kind;
  std::function<void(Desk&)> (*parse)(Words& words);
};

// The row whose words the line begins with, taken off the line; nullptr when there is none.
const ActionWords* TakeActionWords(Words& words);
std::string KnownActions();

// The row of a table of words that the line begins with; it takes them off the line.
template <class Row, size_t N>
const Row* TakeRow(const Row (&rows)[N], Words& words) {
  for (const Row& row : rows) {
    Words trial = words;
    Words beginning(row.words);
    bool fits = true;
    while (fits && !beginning.AtEnd()) fits = trial.Take(beginning.Next(""));
    if (!fits) continue;
    words = trial;
    return &row;
  }
  return nullptr;
}

// The same for what happens to a site: its hub, its cables, the power of its devices.
struct SiteActionWords {
  const char* words;
  const char* usage;
  std::function<void(CarPark&)> (*parse)(Words& words, const SiteDevices& site);
};
const SiteActionWords* TakeSiteActionWords(Words& words);
std::string KnownSiteActions();

Expectation ParseExpectation(Words& words);

}  // namespace desk
