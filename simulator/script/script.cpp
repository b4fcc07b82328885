#include "script/script.h"

#include <fstream>
#include <sstream>

#include "script/script_words.h"

namespace desk {
namespace {

// "at DEVICE": which device of a site the line is about. Says whether there was one.
bool TakeDevice(Words& words, const SiteDevices& site, Statement& statement) {
  if (!words.Take("at")) return false;
  statement.device = words.Next("a device's name");
  if (site.empty()) throw ScriptMistake("\"at\" is for a site: ./run --site");
  if (site.count(statement.device) == 0) throw ScriptMistake("the site has no device \"" + statement.device + "\"");
  return true;
}

// What happens to a site itself. False for other words.
bool TakeSiteAction(Words& words, const SiteDevices& site, Statement& statement) {
  const SiteActionWords* action = TakeSiteActionWords(words);
  if (action == nullptr) return false;
  try {
    statement.act_on_site = action->parse(words, site);
    words.RequireEnd();
  } catch (const ScriptMistake& mistake) {
    throw ScriptMistake(std::string(mistake.what()) + "\n    usage: " + action->usage);
  }
  return true;
}

Statement ParseStatement(const std::string& text, const SiteDevices& site) {
  Statement statement;
  statement.text = text;
  Words words(text);
  const bool of_device = TakeDevice(words, site, statement);
  if (!site.empty() && !of_device && TakeSiteAction(words, site, statement)) return statement;
  if (words.Take("wait")) {
    statement.kind = Statement::Kind::kWait;
    statement.wait = words.Duration();
    words.RequireEnd();
    return statement;
  }
  if (words.Take("expect")) {
    statement.kind = Statement::Kind::kExpect;
    const bool named = of_device || TakeDevice(words, site, statement);
    if (!site.empty() && !named) throw ScriptMistake("of which device? expect at DEVICE ...");
    statement.expectation = ParseExpectation(words);
    if (site.empty() && statement.expectation.of_site) throw ScriptMistake("\"truth\" is for a site: ./run --site");
    return statement;
  }
  if (!site.empty() && !of_device) throw ScriptMistake("which device? at DEVICE ..., or one of " + KnownSiteActions());
  const ActionWords* action = TakeActionWords(words);
  if (action == nullptr) {
    throw ScriptMistake("\"" + words.Peek() + "\" is not a word that scripts know; there are " + KnownActions());
  }
  try {
    statement.kind = action->kind;
    statement.act = action->parse(words);
    words.RequireEnd();
  } catch (const ScriptMistake& mistake) {
    throw ScriptMistake(std::string(mistake.what()) + "\n    usage: " + action->usage);
  }
  return statement;
}

std::string Trimmed(const std::string& line) {
  const size_t from = line.find_first_not_of(" \t\r");
  if (from == std::string::npos) return "";
  return line.substr(from, line.find_last_not_of(" \t\r") - from + 1);
}

}  // namespace

bool ParseScript(const std::string& file, const std::string& text, Script& script, std::vector<std::string>& mistakes,
                 const SiteDevices& site) {
  script.file = file;
  const size_t mistakes_before = mistakes.size();
  std::istringstream lines(text);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    const int first = ++number;
    std::string whole = Trimmed(line);
    while (!whole.empty() && whole.back() == '\\' && std::getline(lines, line)) {  // goes on in the next line
      whole.pop_back();
      whole = Trimmed(whole) + " " + Trimmed(line);
      ++number;
    }
    if (whole.empty() || whole[0] == '#') continue;
    try {
      script.statements.push_back(ParseStatement(whole, site));
      script.statements.back().line = first;
    } catch (const ScriptMistake& mistake) {
      mistakes.push_back(file + ":" + std::to_string(first) + ": " + mistake.what());
    }
  }
  return mistakes.size() == mistakes_before;
}

bool ReadScript(const std::string& file, Script& script, std::vector<std::string>& mistakes, const SiteDevices& site) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  if (stream.fail() || text.fail()) {
    mistakes.push_back(file + ": cannot be read");
    return false;
  }
  return ParseScript(file, text.str(), script, mistakes, site);
}

}  // namespace desk
